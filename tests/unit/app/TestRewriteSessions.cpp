// Faults: a burst of presses making several popups, an old rewrite leaking into a new one,
// an over-long text reaching the service, Replace writing where the text did not come from,
// the notice after a Replace not where the popup stood or offering Undo twice.
#include "PopupViewModel.h"
#include "PopupWindowController.h"
#include "QmlEngine.h"
#include "RewriteSession.h"
#include "RewriteSessions.h"
#include "SessionDesk.h"
#include "StdoutCapture.h"
#include "UndoNotice.h"
#include "UndoNoticeModel.h"

#include <QLocale>
#include <QQuickWindow>
#include <QSignalSpy>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

const RunningApplication terminal = SessionDesk::terminal;

// A desktop of fakes around the real capture, sessions and popups.
struct Desk : SessionDesk
{
    QmlEngine qml;
    RewriteSessions sessions { services(), qml };

    explicit Desk(const QString &selection = u"one"_s) { accessibility.selection = selection; }

    PopupViewModel *model() const
    {
        return sessions.popupWindowController() ? sessions.popupWindowController()->viewModel() : nullptr;
    }
};

} // namespace

class TestRewriteSessions : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // Numbers in messages follow the user's locale; these rows are written for English.
    void initTestCase() { QLocale::setDefault(QLocale(QLocale::English, QLocale::UnitedStates)); }

    // Triggers arriving while a capture is under way join it: one capture, one popup, however
    // many arrive (the D-Bus entry may be called a thousand times in a row). A later press
    // ends that rewrite cleanly: its request is cancelled and nothing of it reaches the new popup.
    void burstThenASecondTrigger()
    {
        Desk desk;
        desk.accessibility.answerDelayMs = 10;
        StdoutCapture capture;
        for (int i = 0; i < 200; ++i)
            desk.sessions.triggerHumanize();
        QTRY_COMPARE(desk.rewriter.requests.size(), 1);
        QTRY_VERIFY(desk.sessions.popupWindowController()->window()->isVisible());
        desk.rewriter.token(u"half"_s);

        desk.accessibility.selection = u"two"_s;
        desk.sessions.triggerHumanize();
        QTRY_COMPARE(desk.rewriter.requests.size(), 2);
        QCOMPARE(desk.rewriter.requests.first().handle->outcome(), RewriteRequest::Outcome::Cancelled);
        QCOMPARE(desk.rewriter.last().text, u"two"_s);
        QCOMPARE(desk.model()->originalText(), u"two"_s);

        QSignalSpy finished(&desk.sessions, &RewriteSessions::rewriteFinished);
        desk.rewriter.requests.first().handle->token(u"stale"_s);
        desk.rewriter.requests.first().handle->complete();
        desk.rewriter.finish(u"new"_s);
        // Only the rewrite that ended is announced, once.
        QCOMPARE(finished.size(), 1);
        QCOMPARE(finished.first(), (QVariantList { u"two"_s, u"new"_s, u"natural"_s, u"Mousepad"_s }));
        QCOMPARE(desk.model()->resultText(), u"new"_s);
        QVERIFY(desk.sessions.popupWindowController()->window()->isVisible());
        const QStringList lines = capture.lines();
        capture.restore();
        QCOMPARE(lines.filter(u"🎯 [AppDelegate] Stored previous app: Mousepad"_s).size(), 2);
        QCOMPARE(desk.accessibility.focusQueries, 2);
    }

    // A popup closed while its model still writes ends that rewrite: the request is
    // cancelled, so a model on this computer stops working for nobody.
    void closingThePopupCancelsItsRewrite_data()
    {
        QTest::addColumn<QString>("how");

        QTest::newRow("Escape") << u"escape"_s;
        QTest::newRow("its close button") << u"button"_s;
        QTest::newRow("the window manager") << u"window"_s;
    }
    void closingThePopupCancelsItsRewrite()
    {
        QFETCH(QString, how);
        Desk desk;
        desk.sessions.triggerHumanize();
        QTRY_COMPARE(desk.rewriter.requests.size(), 1);
        QQuickWindow *popup = desk.sessions.popupWindowController()->window();
        QTRY_VERIFY(popup->isVisible());
        desk.rewriter.token(u"half"_s);
        QCOMPARE(desk.rewriter.last().handle->outcome(), RewriteRequest::Outcome::Running);

        if (how == u"escape"_s) {
            popup->requestActivate();
            QVERIFY(QTest::qWaitForWindowActive(popup));
            QTest::keyClick(popup, Qt::Key_Escape);
        } else if (how == u"button"_s) {
            QVERIFY(QMetaObject::invokeMethod(popup->findChild<QObject *>(u"closeButton"_s), "clicked"));
        } else {
            popup->close();
        }
        QTRY_VERIFY(!popup->isVisible());
        QCOMPARE(desk.rewriter.last().handle->outcome(), RewriteRequest::Outcome::Cancelled);
    }

    // "Rewrite again" in the History asks for what the entry had, a tone or an instruction;
    // a saved instruction's shortcut asks for its instruction over the selection.
    void whatWasAskedIsKept_data()
    {
        QTest::addColumn<bool>("handed"); // from the History; else the shortcut's capture
        QTest::addColumn<QString>("asked");
        QTest::addColumn<QString>("tone");
        QTest::addColumn<QString>("instruction");

        QTest::newRow("again, nothing recorded") << true << QString() << u"natural"_s << QString();
        QTest::newRow("again, a tone") << true << u"warm"_s << u"warm"_s << QString();
        QTest::newRow("again, an instruction") << true << u"in German"_s << u"natural"_s << u"in German"_s;
        QTest::newRow("again, a tone's name with other words")
            << true << u"warm and short"_s << u"natural"_s << u"warm and short"_s;
        QTest::newRow("shortcut of an instruction") << false << u"shorter"_s << u"natural"_s << u"shorter"_s;
    }
    void whatWasAskedIsKept()
    {
        QFETCH(bool, handed);
        QFETCH(QString, asked);
        Desk desk(u"one"_s);
        if (handed)
            desk.sessions.rewriteAgain(u"one"_s, asked);
        else
            desk.sessions.triggerWithInstruction(asked);
        QTRY_COMPARE(desk.rewriter.requests.size(), 1);
        QCOMPARE(desk.rewriter.last().text, u"one"_s);
        QTEST(desk.rewriter.last().tone, "tone");
        QTEST(desk.rewriter.last().instruction, "instruction");
        QTEST(desk.model()->instruction(), "instruction");
    }

    void textOverTheLimitIsRefused_data()
    {
        QTest::addColumn<bool>("handed"); // over D-Bus, else captured
        QTest::addColumn<qsizetype>("length");
        QTest::addColumn<QString>("refusal"); // empty: rewritten

        const QString over = u"This text is too long to rewrite: 100,001 characters, where 100,000 is the "
                             "most. Select a shorter part."_s;
        QTest::newRow("handed, at the limit") << true << qsizetype(100000) << QString();
        QTest::newRow("handed, over the limit") << true << qsizetype(100001) << over;
        QTest::newRow("captured, at the limit") << false << qsizetype(100000) << QString();
        QTest::newRow("captured, over the limit") << false << qsizetype(100001) << over;
    }

    // Too long a text is refused with a message before any of it reaches the popup, the
    // service or the log; up to the limit it is rewritten as usual.
    void textOverTheLimitIsRefused()
    {
        QFETCH(bool, handed);
        QFETCH(qsizetype, length);
        QFETCH(QString, refusal);
        const bool refused = !refusal.isEmpty();

        const QString text(length, u'x');
        Desk desk(text);
        StdoutCapture capture;
        if (handed)
            desk.sessions.humanizeSelectedText(text);
        else
            desk.sessions.triggerHumanize();
        QTRY_VERIFY(desk.model());
        QTRY_VERIFY(desk.sessions.popupWindowController()->window()->isVisible());
        if (!refused)
            QTRY_COMPARE(desk.rewriter.requests.size(), 1);
        const QStringList lines = capture.lines();
        capture.restore();

        PopupViewModel *model = desk.model();
        if (refused) {
            QCOMPARE(model->state(), PopupViewModel::State::Notice);
            QCOMPARE(model->message(), refusal);
            QCOMPARE(model->originalText().size(), 280);
            QVERIFY(desk.rewriter.requests.isEmpty());
            QCOMPARE(lines.filter(u"🔧 [Service] Got text from service: "_s).size(), 0);
        } else {
            QCOMPARE(desk.rewriter.requests.size(), 1);
            QCOMPARE(desk.rewriter.last().text.size(), length);
            QCOMPARE(model->originalPreview().size(), 281);
            QCOMPARE(lines.filter(u"🔧 [Service] Got text from service: "_s).size(), handed ? 1 : 0);
        }
    }

    // Where no program may type into another and the selection is not on the bus, the
    // popup rewrites what the user copies while it is open, and Replace only copies.
    void copiedTextWhereNoKeyCanBeTyped()
    {
        Desk desk { QString() };
        desk.keys.typing = false;
        desk.sessions.triggerHumanize();
        QTRY_VERIFY(desk.model());
        QCOMPARE(desk.model()->state(), PopupViewModel::State::Notice);
        QVERIFY(desk.model()->message().contains(u"Ctrl+C"_s));
        QVERIFY(desk.keys.keys.isEmpty());

        desk.pasteboard.setContents({ { u"text/plain"_s, "copied words" } });
        QTRY_COMPARE(desk.rewriter.requests.size(), 1);
        QCOMPARE(desk.rewriter.last().text, u"copied words"_s);
        desk.rewriter.token(u"Hi there"_s);
        desk.rewriter.complete();
        desk.model()->replace();
        QTRY_COMPARE(desk.clipboardText(), u"Hi there"_s);
        QVERIFY(desk.accessibility.written.isEmpty());
        QVERIFY(desk.sessions.popupWindowController()->window()->isVisible());
        QVERIFY(desk.model()->note().contains(u"Ctrl+V"_s));
    }

    void replaceWritesOnlyWhereTheTextCameFrom_data()
    {
        QTest::addColumn<bool>("handed");
        QTest::addColumn<bool>("inTerminal");
        QTest::addColumn<QString>("selectedAtReplace");
        QTest::addColumn<bool>("written");

        QTest::newRow("captured") << false << false << u"hello"_s << true;
        QTest::newRow("handed, still selected") << true << false << u"hello"_s << true;
        QTest::newRow("handed, selection changed") << true << false << u"other"_s << false;
        QTest::newRow("captured in a terminal") << false << true << u"hello"_s << false;
    }

    // Replace writes only over the text the rewrite came from, in the window it came from.
    // Elsewhere the rewrite goes to the clipboard, and the popup says so.
    void replaceWritesOnlyWhereTheTextCameFrom()
    {
        QFETCH(bool, handed);
        QFETCH(bool, inTerminal);
        QFETCH(QString, selectedAtReplace);
        QFETCH(bool, written);

        Desk desk(u"hello"_s);
        if (inTerminal) {
            desk.workspace.frontmost = terminal;
            desk.primary.owner = terminal.window;
            desk.primary.selection = u"hello"_s;
        }
        if (handed)
            desk.sessions.humanizeSelectedText(u"hello"_s);
        else
            desk.sessions.triggerHumanize();
        QTRY_COMPARE(desk.rewriter.requests.size(), 1);
        desk.rewriter.finish(u"Hi there"_s);

        desk.accessibility.selection = selectedAtReplace;
        desk.workspace.frontmost = std::nullopt; // the popup has the focus
        desk.model()->replace();

        if (written) {
            QTRY_COMPARE(desk.accessibility.written, QStringList { u"Hi there"_s });
            return;
        }
        QTRY_COMPARE(desk.clipboardText(), u"Hi there"_s);
        QVERIFY(desk.accessibility.written.isEmpty());
        // The popup stays to say where the rewrite went; a terminal's Shift+Insert pastes PRIMARY.
        QVERIFY(desk.sessions.popupWindowController()->window()->isVisible());
        QVERIFY(!desk.model()->note().isEmpty());
        QCOMPARE(desk.primary.taken, inTerminal ? QStringList { u"Hi there"_s } : QStringList());
        QCOMPARE(desk.model()->note().contains(u"Shift+Insert"_s), inTerminal);
    }

    // A written Replace is offered back where its popup stood, once: the notice's Undo puts
    // the original back and says so, and there is nothing more to undo.
    void replaceOffersUndoWhereThePopupWas()
    {
        Desk desk(u"hello"_s);
        desk.accessibility.document = u"Say hello now"_s;
        QSignalSpy canUndo(&desk.sessions, &RewriteSessions::canUndoChanged);
        desk.sessions.triggerHumanize();
        QTRY_COMPARE(desk.rewriter.requests.size(), 1);
        desk.rewriter.finish(u"Hi there"_s);
        // Dragged away from the middle of the screen, where popups open.
        QQuickWindow *popup = desk.sessions.popupWindowController()->window();
        popup->setPosition(popup->position() + QPoint(-90, 60));
        const QPoint popupCentre = popup->geometry().center();
        desk.workspace.frontmost = std::nullopt; // the popup has the focus
        desk.model()->replace();

        QTRY_COMPARE(canUndo.size(), 1);
        QCOMPARE(canUndo.last().first().toBool(), true);
        QCOMPARE(desk.accessibility.document, u"Say Hi there now"_s);
        UndoNotice *notice = desk.sessions.undoNotice();
        QVERIFY(notice && notice->window());
        QTRY_VERIFY(notice->window()->isVisible());
        QVERIFY((notice->window()->geometry().center() - popupCentre).manhattanLength() <= 3);
        QCOMPARE(notice->model()->message(), u"Replaced."_s);
        QVERIFY(notice->model()->offersUndo());

        notice->model()->undo();
        QTRY_COMPARE(desk.accessibility.document, u"Say hello now"_s);
        QTRY_COMPARE(notice->model()->message(), u"The original is back in Mousepad."_s);
        QVERIFY(!notice->model()->offersUndo());
        QVERIFY(!notice->model()->refused());
        QCOMPARE(canUndo.size(), 2);
        QVERIFY(!desk.sessions.canUndo());
    }
};

QTEST_MAIN(TestRewriteSessions)
#include "TestRewriteSessions.moc"
