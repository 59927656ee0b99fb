// Faults: Replace writing before the popup is gone, into a window the text did not come
// from, twice, or losing the rewrite where it cannot write; Copy marking the user's copy as
// ours; a finished rewrite never announced or announced empty; Replace log lines changed.
#include "SessionDesk.h"
#include "StdoutCapture.h"

#include <QRegularExpression>
#include <QSignalSpy>
#include <QTest>

using namespace Qt::StringLiterals;
using State = RewriteSession::State;

class TestRewriteSession : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void replace_data()
    {
        QTest::addColumn<QString>("setup"); // what differs from a selection read over the bus
        QTest::addColumn<bool>("closes"); // the popup goes before anything is written
        QTest::addColumn<QStringList>("written");
        QTest::addColumn<QString>("clipboard"); // where the rewrite waits instead
        QTest::addColumn<bool>("noted"); // the popup stays and says where it went
        QTest::addColumn<QStringList>("lines"); // log lines, in order, after the first

        const QString result = u"👍🏽 done"_s;
        const QString back = u"🎯 [AppDelegate] Returning to: Mousepad"_s;
        QTest::newRow("written where it came from")
            << QString() << true << QStringList { result } << QString() << false
            << QStringList { back, u"🔄 [PopupView] Replace result: true"_s };
        // A double click, or an impatient second press, writes the text once.
        QTest::newRow("pressed twice") << u"twice"_s << true << QStringList { result } << QString() << false
                                       << QStringList { back, u"🔄 [PopupView] Replace result: true"_s };
        QTest::newRow("the window does not come back")
            << u"no return"_s << true << QStringList {} << result << false
            << QStringList { back, u"❌ [AppDelegate] Could not bring back: Mousepad"_s,
                   u"❌ [PopupView] Not replacing: the previous window is not in front, the text is on the clipboard"_s,
                   u"🔄 [PopupView] Replace result: false"_s };
        QTest::newRow("no window was stored")
            << u"no window"_s << true << QStringList {} << result << false
            << QStringList { u"❌ [AppDelegate] No previous app stored"_s,
                   u"❌ [PopupView] Not replacing: the previous window is not in front, the text is on the clipboard"_s,
                   u"🔄 [PopupView] Replace result: false"_s };
        // The user moved the selection while the popup was open.
        QTest::newRow("selection changed") << u"moved"_s << true << QStringList {} << result << false
                                           << QStringList { back, u"🔄 [PopupView] Replace result: false"_s };
        QTest::newRow("terminal") << u"terminal"_s << false << QStringList {} << result << true
                                  << QStringList {};
        QTest::newRow("handed text no longer selected")
            << u"handed, moved"_s << false << QStringList {} << result << true << QStringList {};
    }

    void replace()
    {
        QFETCH(QString, setup);
        QFETCH(bool, closes);
        QFETCH(QStringList, written);
        QFETCH(QString, clipboard);
        QFETCH(bool, noted);
        QFETCH(QStringList, lines);

        SessionDesk desk;
        RewriteSession session(desk.services());
        CaptureTarget target { CaptureTarget::Method::Accessibility, SessionDesk::editor,
            desk.accessibility.focus.element, u"hello"_s };
        if (setup == u"terminal"_s)
            target = { CaptureTarget::Method::Primary, SessionDesk::terminal, std::nullopt, u"hello"_s };
        if (setup.startsWith(u"handed"_s))
            target.method = CaptureTarget::Method::Handed;
        if (setup == u"no window"_s)
            target.application.reset();
        desk.accessibility.selection = u"hello"_s;
        session.takeCapture({ u"hello"_s, target });
        session.start();
        desk.rewriter.finish(u"👍🏽 done"_s);
        QCOMPARE(session.state(), State::Done);

        desk.workspace.frontmost = std::nullopt; // the popup has the keyboard
        desk.workspace.activationSucceeds = setup != u"no return"_s;
        if (setup.endsWith(u"moved"_s))
            desk.accessibility.selection = u"hel"_s;
        QSignalSpy closed(&session, &RewriteSession::closeRequested);
        QSignalSpy idle(&session, &RewriteSession::idle);
        QSignalSpy replaced(&session, &RewriteSession::replaced);
        StdoutCapture log;
        session.replace();
        if (setup == u"twice"_s)
            session.replace();
        // Nothing happens in the other window before the popup is out of the way.
        QVERIFY(desk.workspace.activated.isEmpty());
        QVERIFY(desk.accessibility.written.isEmpty());
        QCOMPARE(closed.size(), closes ? 1 : 0);
        desk.workspace.frontmost = SessionDesk::editor; // given back by the window manager

        if (closes) {
            QTRY_COMPARE(idle.size(), 1);
            QCOMPARE(session.state(), State::Replaced);
        } else {
            QTRY_VERIFY(!session.note().isEmpty());
            QCOMPARE(session.state(), State::Done); // Replace may be asked again
        }
        const QStringList printed = log.lines();
        log.restore();
        QCOMPARE(printed.value(0), u"🔄 [PopupView] Replace called with text length: 6"_s);
        QCOMPARE(printed.filter(u"Replace called"_s).size(), setup == u"twice"_s ? 2 : 1);
        QStringList events = printed.filter(
            QRegularExpression(u"^(🎯|🔄 \\[PopupView\\] Replace result|❌ \\[(AppDelegate|PopupView)\\])"_s));
        QCOMPARE(events, lines);
        QCOMPARE(desk.accessibility.written, written);
        QCOMPARE(session.wasWritten(), !written.isEmpty());
        QCOMPARE(replaced.size(), written.isEmpty() ? 0 : 1);
        if (!clipboard.isEmpty())
            QCOMPARE(desk.clipboardText(), clipboard);
        QCOMPARE(!session.note().isEmpty(), noted);
    }

    // Copy is the user's own: plain text that a clipboard manager keeps, not marked as a
    // passing rewrite like a paste's.
    void copyIsTheUsersOwn()
    {
        SessionDesk desk;
        const auto session = desk.session(u"text"_s);
        session->start();
        desk.rewriter.finish(u"Hi there"_s);
        session->copy();
        QCOMPARE(desk.pasteboard.contents(), (FakePasteboard::Formats { { u"text/plain"_s, "Hi there" } }));
    }

    void finished_data()
    {
        QTest::addColumn<QStringList>("script"); // service events after the first request
        QTest::addColumn<QStringList>("announced"); // result and tone of each finished()

        QTest::newRow("a result") << QStringList { u"token:Hi"_s, u"token: there"_s, u"complete"_s }
                                  << QStringList { u"Hi there|natural"_s };
        QTest::newRow("no text is no rewrite") << QStringList { u"complete"_s } << QStringList {};
        QTest::newRow("a failure") << QStringList { u"token:Hi"_s, u"error:boom"_s } << QStringList {};
        QTest::newRow("each finished request, in its tone") << QStringList { u"token:a"_s, u"complete"_s,
            u"tone:warm"_s, u"token:b"_s, u"complete"_s } << QStringList { u"a|natural"_s, u"b|warm"_s };
        // The history keeps what was asked: the instruction when one took the tone's place.
        QTest::newRow("an instruction instead of the tone") << QStringList { u"token:a"_s, u"complete"_s,
            u"instruction: shorter "_s, u"token:b"_s, u"complete"_s }
                                                            << QStringList { u"a|natural"_s, u"b|shorter"_s };
        QTest::newRow("a tone after an instruction")
            << QStringList { u"instruction:shorter"_s, u"tone:warm"_s, u"token:c"_s, u"complete"_s }
            << QStringList { u"c|warm"_s };
        QTest::newRow("blank words change nothing") << QStringList { u"tone:warm"_s, u"instruction:  "_s,
            u"token:d"_s, u"complete"_s } << QStringList { u"d|warm"_s };
        QTest::newRow("a superseded request is not")
            << QStringList { u"token:a"_s, u"tone:warm"_s, u"first:complete"_s } << QStringList {};
    }

    // The history hears of every rewrite that ended with a text, with what it needs.
    void finished()
    {
        QFETCH(QStringList, script);

        SessionDesk desk;
        const auto session = desk.session(u"original"_s);
        QStringList announced;
        connect(session.get(), &RewriteSession::finished, this,
            [&announced](const QString &original, const QString &result, const QString &tone,
                const QString &application) {
                QCOMPARE(original, u"original"_s);
                QCOMPARE(application, u"Mousepad"_s);
                announced.append(result + u'|' + tone);
            });
        session->start();
        for (const QString &step : script) {
            if (step.startsWith(u"token:"))
                desk.rewriter.token(step.sliced(6));
            else if (step == u"complete")
                desk.rewriter.complete();
            else if (step == u"first:complete")
                desk.rewriter.requests.first().handle->complete();
            else if (step.startsWith(u"error:"))
                desk.rewriter.error(Failure::service(step.sliced(6)));
            else if (step.startsWith(u"instruction:"))
                session->useInstruction(step.sliced(12));
            else
                session->selectTone(step.sliced(5));
        }
        QTEST(announced, "announced");
        // Each request carried what it announces: the instruction beside the plain tone.
        for (const FakeRewriter::Request &request : std::as_const(desk.rewriter.requests))
            QVERIFY(request.instruction.isEmpty() || request.tone == u"natural"_s);
    }
};

QTEST_GUILESS_MAIN(TestRewriteSession)
#include "TestRewriteSession.moc"
