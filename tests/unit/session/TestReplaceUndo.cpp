// Faults: Undo writing over text the user has changed since the Replace, into another
// window or an element that went, taking a pasted rewrite back blind, losing the original
// where it refuses, undoing twice, or logging the user's words.
#include "ReplaceUndo.h"
#include "SessionDesk.h"
#include "StdoutCapture.h"

#include <QSignalSpy>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

const QString before = u"Dear team, "_s;
const QString original = u"the meeting moved to Friday."_s;
const QString after = u" Thanks"_s;
// Beyond the Basic Multilingual Plane: offsets of code points and of UTF-16 units differ.
const QString rewrite = u"We meet on Friday now 👍🏽."_s;
const QString userClipboard = u"the user's own clipboard"_s;

} // namespace

class TestReplaceUndo : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void undo_data()
    {
        QTest::addColumn<QString>("change"); // what happens between Replace and Undo
        QTest::addColumn<bool>("restored");
        QTest::addColumn<QString>("document"); // the editor's text after the Undo
        QTest::addColumn<QString>("clipboard");
        QTest::addColumn<QString>("message");

        const QString replaced = before + rewrite + after;
        const QString onClipboard = u": the original is on the clipboard."_s;
        QTest::newRow("still the rewrite: written back")
            << QString() << true << before + original + after << userClipboard
            << u"The original is back in Mousepad."_s;
        QTest::newRow("typed in between")
            << u"typed"_s << false << before + u"We meet x"_s + rewrite.mid(8) + after << original
            << u"The text in Mousepad has changed since the rewrite"_s + onClipboard;
        QTest::newRow("rewrite deleted")
            << u"deleted"_s << false << before + after << original
            << u"The text in Mousepad has changed since the rewrite"_s + onClipboard;
        QTest::newRow("target gone") << u"gone"_s << false << replaced << original
                                     << u"The text in Mousepad is gone"_s + onClipboard;
        QTest::newRow("window switched: it cannot be brought back")
            << u"no return"_s << false << replaced << original
            << u"Mousepad could not be brought back"_s + onClipboard;
        QTest::newRow("window switched: another one stays in front")
            << u"other in front"_s << false << replaced << original
            << u"Mousepad is no longer in front"_s + onClipboard;
        QTest::newRow("pasted: cannot be read back")
            << u"pasted"_s << false << before + original + after << original
            << u"The rewrite was pasted into Mousepad, which cannot be read back"_s + onClipboard;
        QTest::newRow("the application refuses the original")
            << u"refuses"_s << false << replaced << original
            << u"Mousepad did not take the original back: it is on the clipboard."_s;
        QTest::newRow("nothing replaced") << u"nothing"_s << false << before + original + after
                                          << userClipboard << u"There is no rewrite to undo."_s;
    }

    void undo()
    {
        QFETCH(QString, change);
        QFETCH(bool, restored);
        QFETCH(QString, document);
        QFETCH(QString, clipboard);
        QFETCH(QString, message);

        SessionDesk desk;
        desk.accessibility.document = before + original + after;
        desk.pasteboard.setContents({ { u"text/plain"_s, userClipboard.toUtf8() } });
        auto session = desk.session(original, { .returnDelay = {}, .replaceDelay = {} });
        session->start();
        desk.rewriter.finish(rewrite);

        // Another window is in front, though the one written into says it came back.
        FakeWorkspace stolenFront;
        ReplaceUndo undo(desk.textAccess, change == u"other in front"_s ? &stolenFront : &desk.workspace,
            std::chrono::milliseconds(0));
        QSignalSpy available(&undo, &ReplaceUndo::canUndoChanged);
        if (change != u"nothing"_s) {
            if (change == u"pasted"_s)
                desk.accessibility.setError = AxError::Failure;
            QSignalSpy idle(session.get(), &RewriteSession::idle);
            session->replace();
            QTRY_COMPARE(idle.size(), 1);
            QVERIFY(session->wasWritten());
            // The paste's clipboard is the user's again before anything else happens.
            QTRY_COMPARE(desk.clipboardText(), userClipboard);
            desk.accessibility.setError = AxError::Success;
            undo.remember(*session);
            QVERIFY(undo.canUndo());
            QCOMPARE(available.size(), 1);
        }

        const qsizetype at = before.size();
        if (change == u"typed"_s)
            desk.accessibility.document.insert(at + 8, u"x"_s);
        else if (change == u"deleted"_s)
            desk.accessibility.document.remove(at, rewrite.size());
        else if (change == u"gone"_s)
            desk.accessibility.gone = true;
        else if (change == u"no return"_s)
            desk.workspace.activationSucceeds = false;
        else if (change == u"other in front"_s)
            desk.workspace.frontmost = SessionDesk::terminal;
        else if (change == u"refuses"_s)
            desk.accessibility.setError = AxError::CannotComplete;
        const QString untouched = desk.accessibility.document;
        const qsizetype writesBefore = desk.accessibility.written.size();

        QSignalSpy undone(&undo, &ReplaceUndo::undone);
        StdoutCapture log;
        undo.undo();
        QTRY_COMPARE(undone.size(), 1);
        const QStringList printed = log.lines();
        log.restore();

        QCOMPARE(undone.first().at(0).toBool(), restored);
        QCOMPARE(undone.first().at(1).toString(), message);
        QCOMPARE(desk.accessibility.document, restored ? document : untouched);
        QCOMPARE(desk.accessibility.document, document);
        QCOMPARE(desk.clipboardText(), clipboard);
        // The original is written once, and only where the rewrite still is.
        const bool triedToWrite = restored || change == u"refuses"_s;
        QCOMPARE(desk.accessibility.written.size(), writesBefore + (triedToWrite ? 1 : 0));
        if (triedToWrite)
            QCOMPARE(desk.accessibility.written.last(), original);
        for (const QString &line : printed) {
            QVERIFY2(!line.contains(u"Friday"_s) && !line.contains(u"meeting"_s), qPrintable(line));
        }
        // A Replace is taken back once, whatever the outcome.
        QVERIFY(!undo.canUndo());
        undo.undo();
        QCOMPARE(undone.size(), 2);
        QCOMPARE(undone.last().at(1).toString(), u"There is no rewrite to undo."_s);
        QCOMPARE(desk.accessibility.written.size(), writesBefore + (triedToWrite ? 1 : 0));
    }

    // Only a Replace that wrote can be taken back: one that left the rewrite on the
    // clipboard has nothing in the window to undo, and a newer one replaces the older.
    void keepsTheLastWrittenReplace()
    {
        SessionDesk desk;
        desk.accessibility.document = before + original + after;
        ReplaceUndo undo(desk.textAccess, &desk.workspace, std::chrono::milliseconds(0));

        auto copied = desk.session(original, { .returnDelay = {}, .replaceDelay = {} });
        copied->start();
        desk.rewriter.finish(rewrite);
        desk.workspace.activationSucceeds = false;
        QSignalSpy copiedIdle(copied.get(), &RewriteSession::idle);
        copied->replace();
        QTRY_COMPARE(copiedIdle.size(), 1);
        undo.remember(*copied);
        QVERIFY(!undo.canUndo());

        desk.workspace.activationSucceeds = true;
        auto written = desk.session(original, { .returnDelay = {}, .replaceDelay = {} });
        written->start();
        desk.rewriter.finish(rewrite);
        QSignalSpy writtenIdle(written.get(), &RewriteSession::idle);
        written->replace();
        QTRY_COMPARE(writtenIdle.size(), 1);
        undo.remember(*written);
        QVERIFY(undo.canUndo());
        QCOMPARE(undo.applicationName(), u"Mousepad"_s);
    }
};

QTEST_MAIN(TestReplaceUndo)
#include "TestReplaceUndo.moc"
