// Faults: a wrong state, text or button after a service event, a late event of an old request
// reaching the popup, a stall never shown, Replace writing the wrong text or too soon.
#include "FakePopupHost.h"
#include "FakeRewriter.h"
#include "PopupViewModel.h"

#include <QSignalSpy>
#include <QTest>

using namespace Qt::StringLiterals;
using State = PopupViewModel::State;

// Plays a script of service events against a model: "token:x", "complete", "error:m",
// "run" (a new request, as Retry does).
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
                first.handle->fail(step.sliced(12));
        } else if (step == u"run")
            vm.run();
        else if (step == u"complete")
            rewriter.complete();
        else if (step.startsWith(u"token:"))
            rewriter.token(step.sliced(6));
        else if (step.startsWith(u"error:"))
            rewriter.error(step.sliced(6));
        else
            QFAIL(qPrintable(u"unknown step "_s + step));
    }
}

class TestPopupViewModel : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void startsLoadingWithTheDefaultTone()
    {
        FakeRewriter rewriter;
        PopupViewModel vm(u"text"_s, rewriter, nullptr);
        QCOMPARE(vm.state(), State::Loading);
        QCOMPARE(vm.resultText(), QString());
        QCOMPARE(vm.selectedTone(), u"natural"_s);
        QVERIFY(rewriter.requests.isEmpty()); // the view starts the first rewrite
    }

    void transitions_data()
    {
        QTest::addColumn<QStringList>("script");
        QTest::addColumn<State>("state");
        QTest::addColumn<QString>("result");
        QTest::addColumn<QString>("error");

        QTest::newRow("request sent") << QStringList {} << State::Loading << QString() << QString();
        QTest::newRow("fragments joined as they come")
            << QStringList { u"token:Hel"_s, u"token:lo, "_s, u"token:wörld 👋🏽"_s } << State::Streaming
            << u"Hello, wörld 👋🏽"_s << QString();
        QTest::newRow("empty fragment still streams")
            << QStringList { u"token:"_s } << State::Streaming << QString() << QString();
        QTest::newRow("done") << QStringList { u"token:a"_s, u"complete"_s } << State::Done << u"a"_s
                              << QString();
        QTest::newRow("done without any fragment")
            << QStringList { u"complete"_s } << State::Done << QString() << QString();
        QTest::newRow("error keeps the partial text")
            << QStringList { u"token:part"_s, u"error:Server unreachable"_s } << State::Error << u"part"_s
            << u"Server unreachable"_s;
        // A request has one outcome: nothing it reports later reaches the popup.
        QTest::newRow("fragment after an error is dropped")
            << QStringList { u"error:boom"_s, u"token:late"_s } << State::Error << QString() << u"boom"_s;
        QTest::newRow("fragment after done is dropped") << QStringList { u"token:a"_s, u"complete"_s,
            u"token:b"_s } << State::Done << u"a"_s << QString();
        QTest::newRow("completion after an error is dropped")
            << QStringList { u"error:boom"_s, u"complete"_s } << State::Error << QString() << u"boom"_s;
        QTest::newRow("the superseded request is silent") << QStringList { u"token:old"_s, u"run"_s,
            u"first:token:stale"_s, u"first:error:stale"_s, u"token:new"_s }
                                                          << State::Streaming << u"new"_s << QString();
        QTest::newRow("retry empties the result") << QStringList { u"token:old"_s, u"complete"_s, u"run"_s }
                                                  << State::Loading << QString() << QString();
        QTest::newRow("retry after an error") << QStringList { u"error:boom"_s, u"run"_s, u"token:new"_s }
                                              << State::Streaming << u"new"_s << QString();
    }

    void transitions()
    {
        QFETCH(QStringList, script);
        QFETCH(State, state);
        QFETCH(QString, result);
        QFETCH(QString, error);

        FakeRewriter rewriter;
        PopupViewModel vm(u"original"_s, rewriter, nullptr);
        vm.run();
        QSignalSpy resultChanges(&vm, &PopupViewModel::resultTextChanged);
        play(rewriter, vm, script);

        QCOMPARE(vm.state(), state);
        QCOMPARE(vm.resultText(), result);
        QCOMPARE(vm.errorMessage(), error);
        // Every run sends the original text; a view showing resultText is told of each change.
        for (const auto &request : std::as_const(rewriter.requests))
            QCOMPARE(request.text, u"original"_s);
        if (!script.isEmpty() && vm.resultText() != QString())
            QVERIFY(!resultChanges.isEmpty());
    }

    void enableRules_data()
    {
        QTest::addColumn<QStringList>("script");
        QTest::addColumn<bool>("busy");
        QTest::addColumn<bool>("canRetry");
        QTest::addColumn<bool>("canCopy");

        QTest::newRow("loading") << QStringList {} << true << false << false;
        QTest::newRow("streaming") << QStringList { u"token:a"_s } << true << false << false;
        QTest::newRow("done") << QStringList { u"token:a"_s, u"complete"_s } << false << true << true;
        QTest::newRow("done, empty") << QStringList { u"complete"_s } << false << true << false;
        // The partial text is hidden behind the message, so it is not offered either.
        QTest::newRow("error, partial text")
            << QStringList { u"token:a"_s, u"error:x"_s } << false << true << false;
    }

    void enableRules()
    {
        QFETCH(QStringList, script);
        QFETCH(bool, busy);
        QFETCH(bool, canRetry);
        QFETCH(bool, canCopy);

        FakeRewriter rewriter;
        PopupViewModel vm(u"original"_s, rewriter, nullptr);
        vm.run();
        QSignalSpy actions(&vm, &PopupViewModel::actionsChanged);
        play(rewriter, vm, script);

        QCOMPARE(vm.isBusy(), busy);
        QCOMPARE(vm.canRetry(), canRetry);
        QCOMPARE(vm.canCopy(), canCopy);
        QCOMPARE(vm.canReplace(), canCopy);
        if (canRetry || canCopy)
            QVERIFY(!actions.isEmpty());
    }

    void selectTone_data()
    {
        QTest::addColumn<QString>("original");
        QTest::addColumn<QStringList>("before"); // script played before the tone is chosen
        QTest::addColumn<QString>("tone");
        QTest::addColumn<int>("requests");

        QTest::newRow("another tone") << u"text"_s << QStringList {} << u"punchy"_s << 2;
        QTest::newRow("the selected tone again") << u"text"_s << QStringList {} << u"natural"_s << 2;
        QTest::newRow("while streaming") << u"text"_s << QStringList { u"token:half"_s } << u"warm"_s << 2;
        QTest::newRow("no text: highlight only") << QString() << QStringList {} << u"warm"_s << 0;
    }

    void selectTone()
    {
        QFETCH(QString, original);
        QFETCH(QStringList, before);
        QFETCH(QString, tone);
        QFETCH(int, requests);

        FakeRewriter rewriter;
        PopupViewModel vm(original, rewriter, nullptr);
        if (!original.isEmpty())
            vm.run();
        play(rewriter, vm, before);
        vm.selectTone(tone);

        QCOMPARE(vm.selectedTone(), tone);
        QCOMPARE(rewriter.requests.size(), requests);
        if (requests > 0) {
            QCOMPARE(rewriter.last().tone, tone);
            QCOMPARE(vm.state(), State::Loading);
            QCOMPARE(vm.resultText(), QString());
        }
    }

    void nothingToRewrite_data()
    {
        QTest::addColumn<QString>("original");
        QTest::addColumn<QString>("refusal"); // what the controller says instead, if anything
        QTest::addColumn<QString>("message");

        QTest::newRow("no text selected") << QString() << QString() << PopupViewModel::noTextMessage();
        QTest::newRow("a text refused") << u"text"_s << u"Too long"_s << u"Too long"_s;
    }

    // A message with what to do, never a spinner that waits for a request nobody sends.
    void nothingToRewrite()
    {
        QFETCH(QString, original);
        QFETCH(QString, refusal);

        FakeRewriter rewriter;
        PopupViewModel vm(original, rewriter, nullptr);
        if (!refusal.isEmpty())
            vm.showNotice(refusal);
        vm.run();
        vm.selectTone(u"warm"_s);

        QCOMPARE(vm.state(), State::Notice);
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

        FakeRewriter rewriter;
        PopupViewModel vm(u"text"_s, rewriter, nullptr, std::chrono::milliseconds(20));
        vm.run();
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
        rewriter.token(u"new"_s);
        rewriter.complete();
        QVERIFY(!vm.isStalled());
        QCOMPARE(vm.resultText(), u"new"_s);
    }

    void callbacksOfAGoneModelDoNothing()
    {
        FakeRewriter rewriter;
        auto vm = std::make_unique<PopupViewModel>(u"text"_s, rewriter, nullptr);
        vm->run();
        vm.reset();
        rewriter.token(u"late"_s);
        rewriter.error(u"late"_s);
        rewriter.complete();
    }

    void copyPutsTheResultOnTheClipboard()
    {
        FakeRewriter rewriter;
        FakePopupHost host;
        PopupViewModel vm(u"text"_s, rewriter, &host);
        vm.copy(); // nothing yet: an empty string, as the button would never allow
        vm.run();
        rewriter.token(u"result"_s);
        rewriter.complete();
        vm.copy();
        QCOMPARE(host.copied, (QStringList { QString(), u"result"_s }));
    }

    // A failure fixed by a choice in Settings offers to go there; others, and a running
    // rewrite, do not.
    void openSettingsWhereTheFixIs_data()
    {
        QTest::addColumn<QStringList>("script");
        QTest::addColumn<bool>("offered");
        QTest::newRow("nothing listening")
            << QStringList { u"error:Tessary can't reach the rewrite service at "
                             "127.0.0.1:8787. Start it with `tessary-server`, or "
                             "pick a language model in Settings."_s }
            << true;
        QTest::newRow("no model chosen")
            << QStringList { u"error:No language model is chosen yet. Pick one in Settings."_s } << true;
        QTest::newRow("a timeout") << QStringList { u"error:The request timed out."_s } << false;
        QTest::newRow("streaming") << QStringList { u"token:Hi"_s } << false;
    }

    void openSettingsWhereTheFixIs()
    {
        QFETCH(QStringList, script);
        QFETCH(bool, offered);
        FakeRewriter rewriter;
        FakePopupHost host;
        PopupViewModel vm(u"text"_s, rewriter, &host);
        vm.run();
        play(rewriter, vm, script);
        QCOMPARE(vm.offersSettings(), offered);
        if (offered) {
            vm.openSettings();
            QCOMPARE(host.settingsOpened, 1);
        }
    }

    void replaceReturnsThenReplacesTheTextAsItWas()
    {
        FakeRewriter rewriter;
        FakePopupHost host;
        auto vm = std::make_unique<PopupViewModel>(u"text"_s, rewriter, &host);
        vm->run();
        rewriter.token(u"👍🏽 done"_s);
        rewriter.complete();

        bool closed = false;
        const qint64 start = host.clock.elapsed();
        vm->replace([&closed] { closed = true; });
        QVERIFY(closed);
        QCOMPARE(host.returnedAt, -1);

        // Neither a later change nor the model's end changes what is written.
        vm->run();
        rewriter.token(u"other"_s);
        vm.reset();

        QTRY_VERIFY(host.replacedAt >= 0);
        QCOMPARE(host.replaced, QStringList { u"👍🏽 done"_s });
        QVERIFY2(host.returnedAt - start >= 100, qPrintable(QString::number(host.returnedAt - start)));
        QVERIFY2(host.replacedAt - host.returnedAt >= 200,
            qPrintable(QString::number(host.replacedAt - host.returnedAt)));
        QVERIFY(host.copied.isEmpty());
    }

    void replaceLeavesTheTextOnTheClipboardWhenReturningFails()
    {
        FakeRewriter rewriter;
        FakePopupHost host;
        host.returnSucceeds = false;
        PopupViewModel vm(u"text"_s, rewriter, &host);
        vm.run();
        rewriter.token(u"result"_s);
        rewriter.complete();

        vm.replace([] {});
        QTRY_COMPARE(host.copied, QStringList { u"result"_s });
        QVERIFY(host.returnedAt >= 0);
        QVERIFY(host.replaced.isEmpty());
    }
};

QTEST_GUILESS_MAIN(TestPopupViewModel)
#include "TestPopupViewModel.moc"
