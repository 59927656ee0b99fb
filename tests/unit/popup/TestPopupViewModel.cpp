// Faults: a wrong state, text or button after a service event, a late event of an old request
// reaching the popup, a stall never shown, Replace named wrongly for a terminal.
#include "PopupViewModel.h"
#include "SessionDesk.h"

#include <QRegularExpression>
#include <QSignalSpy>
#include <QTest>

using namespace Qt::StringLiterals;
using State = PopupViewModel::State;

// Plays a script of service events against a model: "token:x", "complete", "error:m",
// "settings:m" (an error fixed in Settings, with a command), "long:m" (a reply stopped
// for its length), "think:x" (reasoning), "run" (a new request, as Retry does),
// "tone:t" (a chip pressed).
static void play(FakeRewriter &rewriter, PopupViewModel &vm, const QStringList &script)
{
    for (const QString &step : script) {
        if (step.startsWith(u"first:")) { // reported by the first request, however many followed
            FakeRewriter::Request &first = rewriter.requests.first();
            if (step == u"first:complete")
                first.handle->complete();
            else if (step.startsWith(u"first:token:"))
                first.handle->token(step.sliced(12));
            else
                first.handle->fail(Failure::service(step.sliced(12)));
        } else if (step == u"run")
            vm.run();
        else if (step.startsWith(u"tone:"))
            vm.selectTone(step.sliced(5));
        else if (step == u"complete")
            rewriter.complete();
        else if (step.startsWith(u"token:"))
            rewriter.token(step.sliced(6));
        else if (step.startsWith(u"error:"))
            rewriter.error(Failure::service(step.sliced(6)));
        else if (step.startsWith(u"settings:"))
            rewriter.error({ Failure::Kind::Unreachable, step.sliced(9), Failure::Fix::Settings,
                { u"tessary-server"_s }, {}, 0 });
        else if (step.startsWith(u"long:"))
            rewriter.error(Failure::of(Failure::Kind::TooLong, step.sliced(5)));
        else if (step.startsWith(u"think:"))
            rewriter.reasoning(step.sliced(6));
        else
            QFAIL(qPrintable(u"unknown step "_s + step));
    }
}

class TestPopupViewModel : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void transitions_data()
    {
        QTest::addColumn<QStringList>("script");
        QTest::addColumn<State>("state");
        QTest::addColumn<QString>("result");
        QTest::addColumn<QString>("error");
        QTest::addColumn<QString>("offers"); // busy (a spinner), retry, copy (and replace), settings

        const QString unreachable = u"Tessary can't reach the rewrite service at 127.0.0.1:8787. Start it "
                                    "with the command below, or pick a language model in Settings."_s;
        const QString noModel = u"No language model is chosen yet. Pick one in Settings."_s;
        QTest::newRow("request sent")
            << QStringList {} << State::Loading << QString() << QString() << u"busy"_s;
        QTest::newRow("streaming") << QStringList { u"token:Hel"_s, u"token:lo, "_s,
            u"token:wörld 👋🏽"_s }
                                   << State::Streaming << u"Hello, wörld 👋🏽"_s << QString()
                                   << u"busy"_s;
        QTest::newRow("empty fragment still streams")
            << QStringList { u"token:"_s } << State::Streaming << QString() << QString() << u"busy"_s;
        QTest::newRow("done") << QStringList { u"token:a"_s, u"complete"_s } << State::Done << u"a"_s
                              << QString() << u"retry copy"_s;
        QTest::newRow("done without any fragment")
            << QStringList { u"complete"_s } << State::Done << QString() << QString() << u"retry"_s;
        // The partial text is hidden behind the message, so it is not offered either.
        QTest::newRow("error keeps the partial text")
            << QStringList { u"token:part"_s, u"error:Server unreachable"_s } << State::Error << u"part"_s
            << u"Server unreachable"_s << u"retry"_s;
        // A failure fixed by a choice in Settings offers to go there.
        QTest::newRow("nothing listening") << QStringList { u"settings:"_s + unreachable } << State::Error
                                           << QString() << unreachable << u"retry settings command"_s;
        QTest::newRow("no model chosen") << QStringList { u"settings:"_s + noModel } << State::Error
                                         << QString() << noModel << u"retry settings command"_s;
        // What the failure is decides, not its words.
        QTest::newRow("words naming Settings offer nothing by themselves")
            << QStringList { u"error:"_s + noModel } << State::Error << QString() << noModel << u"retry"_s;
        // A reply stopped for its length keeps what it had, to copy.
        QTest::newRow("stopped for its length")
            << QStringList { u"token:long"_s, u"long:too long"_s } << State::Error << u"long"_s
            << u"too long"_s << u"retry copy kept"_s;
        // Thinking is shown apart and never becomes the result.
        QTest::newRow("thinking") << QStringList { u"think:hmm"_s } << State::Loading << QString()
                                  << QString() << u"busy thinking"_s;
        QTest::newRow("thinking, then the answer")
            << QStringList { u"think:hmm"_s, u"token:Hi"_s, u"complete"_s } << State::Done << u"Hi"_s
            << QString() << u"retry copy"_s;
        // A request has one outcome: nothing it reports later reaches the popup.
        QTest::newRow("fragment after an error is dropped")
            << QStringList { u"error:boom"_s, u"token:late"_s } << State::Error << QString() << u"boom"_s
            << u"retry"_s;
        QTest::newRow("fragment after done is dropped")
            << QStringList { u"token:a"_s, u"complete"_s, u"token:b"_s } << State::Done << u"a"_s << QString()
            << u"retry copy"_s;
        QTest::newRow("completion after an error is dropped")
            << QStringList { u"error:boom"_s, u"complete"_s } << State::Error << QString() << u"boom"_s
            << u"retry"_s;
        QTest::newRow("the superseded request is silent")
            << QStringList { u"token:old"_s, u"run"_s, u"first:token:stale"_s, u"first:complete"_s,
                   u"first:error:stale"_s, u"token:new"_s }
            << State::Streaming << u"new"_s << QString() << u"busy"_s;
        QTest::newRow("retry empties the result") << QStringList { u"token:old"_s, u"complete"_s, u"run"_s }
                                                  << State::Loading << QString() << QString() << u"busy"_s;
        QTest::newRow("retry after an error") << QStringList { u"error:boom"_s, u"run"_s, u"token:new"_s }
                                              << State::Streaming << u"new"_s << QString() << u"busy"_s;
        // A chip asks again in its tone, whatever the popup was doing.
        QTest::newRow("another tone")
            << QStringList { u"tone:punchy"_s } << State::Loading << QString() << QString() << u"busy"_s;
        QTest::newRow("the selected tone again")
            << QStringList { u"tone:natural"_s } << State::Loading << QString() << QString() << u"busy"_s;
        QTest::newRow("another tone while streaming")
            << QStringList { u"token:half"_s, u"tone:warm"_s } << State::Loading << QString() << QString()
            << u"busy"_s;
    }

    void transitions()
    {
        QFETCH(QStringList, script);
        QFETCH(State, state);
        QFETCH(QString, result);
        QFETCH(QString, offers);

        SessionDesk desk;
        FakeRewriter &rewriter = desk.rewriter;
        const auto session = desk.session(u"original"_s);
        PopupViewModel vm(session.get());
        QSignalSpy settings(session.get(), &RewriteSession::settingsRequested);
        // The popup on screen starts the first rewrite, in the default tone; once.
        QCOMPARE(vm.state(), State::Loading);
        QVERIFY(rewriter.requests.isEmpty());
        session->start();
        session->start();
        QSignalSpy resultChanges(&vm, &PopupViewModel::resultTextChanged);
        QSignalSpy actions(&vm, &PopupViewModel::actionsChanged);
        play(rewriter, vm, script);

        QCOMPARE(vm.state(), state);
        QCOMPARE(vm.resultText(), result);
        QTEST(vm.errorMessage(), "error");
        const QStringList offered = offers.split(u' ');
        QCOMPARE(vm.isBusy(), offered.contains(u"busy"_s));
        QCOMPARE(vm.canRetry(), offered.contains(u"retry"_s));
        QCOMPARE(vm.canCopy(), offered.contains(u"copy"_s));
        QCOMPARE(vm.canReplace(), offered.contains(u"copy"_s) && !offered.contains(u"kept"_s));
        QCOMPARE(vm.offersSettings(), offered.contains(u"settings"_s));
        QCOMPARE(vm.commands(),
            offered.contains(u"command"_s) ? QStringList { u"tessary-server"_s } : QStringList());
        QCOMPARE(vm.isThinking(), offered.contains(u"thinking"_s));
        QCOMPARE(vm.reasoningText(), script.contains(u"think:hmm"_s) ? u"hmm"_s : QString());
        // Each run and each chip asks again, in the tone last chosen.
        const QStringList chips = script.filter(QRegularExpression(u"^tone:"_s));
        QCOMPARE(rewriter.requests.size(), 1 + script.count(u"run"_s) + chips.size());
        const QString tone = chips.isEmpty() ? u"natural"_s : chips.last().sliced(5);
        QCOMPARE(vm.selectedTone(), tone);
        QCOMPARE(rewriter.last().tone, tone);
        // Every run sends the original text; a view is told of each change it shows.
        for (const auto &request : std::as_const(rewriter.requests))
            QCOMPARE(request.text, u"original"_s);
        if (!result.isEmpty())
            QVERIFY(!resultChanges.isEmpty());
        if (vm.canRetry() || vm.canCopy())
            QVERIFY(!actions.isEmpty());
        if (vm.offersSettings()) {
            QSignalSpy closing(&vm, &PopupViewModel::closeRequested);
            vm.openSettings();
            QCOMPARE(settings.size(), 1);
            QCOMPARE(closing.size(), 1);
        }
    }

    // A rewrite that came back in another writing system says so beside Retry, once it is done.
    void languageNote_data()
    {
        QTest::addColumn<QString>("original");
        QTest::addColumn<QStringList>("script");
        QTest::addColumn<bool>("noted");
        const QString english = u"Could you send me the report by Friday?"_s;
        QTest::newRow("same script") << english
                                     << QStringList { u"token:Send the report by Friday."_s, u"complete"_s }
                                     << false;
        QTest::newRow("another script")
            << english << QStringList { u"token:Пришлите отчёт до пятницы."_s, u"complete"_s } << true;
        QTest::newRow("not while it streams")
            << english << QStringList { u"token:Пришлите отчёт до пятницы."_s } << false;
    }
    void languageNote()
    {
        QFETCH(QString, original);
        QFETCH(QStringList, script);
        QFETCH(bool, noted);
        SessionDesk desk;
        const auto session = desk.session(original);
        PopupViewModel vm(session.get());
        session->start();
        play(desk.rewriter, vm, script);
        QCOMPARE(!vm.languageNote().isEmpty(), noted);
    }

    void nothingToRewrite_data()
    {
        QTest::addColumn<QString>("original");
        QTest::addColumn<QString>("refusal"); // what the controller says instead, if anything
        QTest::addColumn<QString>("message");

        QTest::newRow("no text selected") << QString() << QString() << RewriteSession::noTextMessage();
        QTest::newRow("a text refused") << u"text"_s << u"Too long"_s << u"Too long"_s;
    }

    // A message with what to do, never a spinner that waits for a request nobody sends.
    void nothingToRewrite()
    {
        QFETCH(QString, original);
        QFETCH(QString, refusal);

        SessionDesk desk;
        FakeRewriter &rewriter = desk.rewriter;
        const auto session = desk.session(original);
        PopupViewModel vm(session.get());
        if (!refusal.isEmpty())
            session->refuse(refusal);
        session->start();
        vm.run();
        vm.selectTone(u"warm"_s);

        QCOMPARE(vm.state(), State::Notice);
        QCOMPARE(vm.selectedTone(), u"warm"_s); // the chip is highlighted all the same
        QTEST(vm.message(), "message");
        QCOMPARE(vm.errorMessage(), QString());
        QVERIFY(!vm.isBusy());
        QVERIFY(!vm.canRetry());
        QVERIFY(!vm.canCopy());
        QVERIFY(rewriter.requests.isEmpty());
    }

    void quietStream_data()
    {
        QTest::addColumn<QStringList>("before"); // played before the stream goes quiet

        QTest::newRow("quiet from the start") << QStringList {};
        QTest::newRow("quiet after a fragment") << QStringList { u"token:half"_s };
    }

    // A stream that goes quiet says so and can be retried at once; a fragment ends the
    // stall, and the retry stops the quiet request.
    void quietStream()
    {
        QFETCH(QStringList, before);

        SessionDesk desk;
        FakeRewriter &rewriter = desk.rewriter;
        const auto session = desk.session(u"text"_s, { .stallDelay = std::chrono::milliseconds(20) });
        PopupViewModel vm(session.get());
        session->start();
        play(rewriter, vm, before);
        QVERIFY(!vm.canRetry());
        QTRY_VERIFY(vm.isStalled());
        QVERIFY(vm.isBusy());
        QVERIFY(vm.canRetry());
        QVERIFY(!vm.canCopy());

        rewriter.token(u"more"_s);
        QVERIFY(!vm.isStalled());
        QVERIFY(!vm.canRetry());
        QTRY_VERIFY(vm.canRetry());

        vm.run();
        QCOMPARE(rewriter.requests.size(), 2);
        QCOMPARE(rewriter.requests.first().handle->outcome(), RewriteRequest::Outcome::Cancelled);
        QVERIFY(!vm.isStalled());
        rewriter.finish(u"new"_s);
        QVERIFY(!vm.isStalled());
        QCOMPARE(vm.resultText(), u"new"_s);
    }

    void replaceLabel_data()
    {
        QTest::addColumn<CaptureTarget::Method>("method");
        QTest::addColumn<QString>("label");

        QTest::newRow("accessibility") << CaptureTarget::Method::Accessibility << u"Replace"_s;
        QTest::newRow("synthesized copy") << CaptureTarget::Method::Clipboard << u"Replace"_s;
        QTest::newRow("handed over D-Bus") << CaptureTarget::Method::Handed << u"Replace"_s;
        // A terminal gets no synthesized paste: the button says what it does there.
        QTest::newRow("terminal") << CaptureTarget::Method::Primary << u"Copy"_s;
    }

    void replaceLabel()
    {
        QFETCH(CaptureTarget::Method, method);

        SessionDesk desk;
        RewriteSession session(desk.services());
        PopupViewModel vm(&session);
        QSignalSpy changes(&vm, &PopupViewModel::originalTextChanged);
        session.takeCapture({ u"text"_s, { method, SessionDesk::editor, std::nullopt, u"text"_s } });
        QVERIFY(!changes.isEmpty());
        QTEST(vm.replaceLabel(), "label");
    }
};

QTEST_GUILESS_MAIN(TestPopupViewModel)
#include "TestPopupViewModel.moc"
