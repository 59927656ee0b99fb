// Faults: Undo not writing the original back into the editor, writing over text the user
// has typed since the Replace, losing the original where it refuses, the notice taking
// the keyboard from the editor, or a click on its Undo lost.
#include "DesktopFixture.h"
#include "PopupRig.h"
#include "Selection.h"

#include <QDBusConnection>
#include <QDBusMessage>

using namespace Qt::StringLiterals;
using namespace Desktop;

// A Replace in a real editor taken back: from the tray menu, from the notice that stands
// where the popup was, and refused once the user has typed in the editor meanwhile.

namespace {

const QString paragraph = u"First words stay. Please rewrite this sentence now. Last words stay too."_s;
const QString sentence = u"Please rewrite this sentence now."_s;
const QString rewrite = u"A rewrite, streamed.\u00a0👍🏽"_s;

FixtureReply streamRewrite(const FixtureRequest &)
{
    return PopupRig::streamed(rewrite);
}

// The windows of the session whose WM_CLASS ("--class") or instance ("--classname")
// matches, as xdotool finds them.
QStringList windows(const QString &how, const QString &pattern)
{
    return QString::fromUtf8(run(u"xdotool"_s, { u"search"_s, u"--onlyvisible"_s, how, pattern }))
        .split(u'\n', Qt::SkipEmptyParts);
}

} // namespace

class TestUndoDesktop : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY2(QDBusConnection::sessionBus().isConnected(),
            "no session bus: run inside scripts/headless-session");
        QVERIFY(PopupRig::prepare(m_server, streamRewrite, m_atspi));
        // A tray for the program's icon, as a panel holds it.
        m_tray.start(u"trayer"_s,
            { u"--edge"_s, u"top"_s, u"--align"_s, u"right"_s, u"--widthtype"_s, u"request"_s, u"--height"_s,
                u"26"_s });
        QVERIFY(m_tray.waitForStarted());
        QTRY_VERIFY_WITH_TIMEOUT(!windows(u"--class"_s, u"trayer"_s).isEmpty(), 10000);
    }
    void cleanupTestCase()
    {
        m_tray.terminate();
        m_tray.waitForFinished();
    }
    void cleanup()
    {
        m_program.reset();
        m_server.clearRequests();
    }
    void undoAReplace_data()
    {
        QTest::addColumn<QString>("from"); // where Undo is asked: "tray", "notice", "click" or "bus"
        QTest::addColumn<bool>("typeBetween"); // the user types in the editor after the Replace

        QTest::newRow("from the tray menu: the original comes back") << u"tray"_s << false;
        QTest::newRow("from the notice: the original comes back") << u"notice"_s << false;
        QTest::newRow("clicked on the notice: the original comes back") << u"click"_s << false;
        QTest::newRow("over D-Bus: the original comes back") << u"bus"_s << false;
        QTest::newRow("typed in between: refused, the original on the clipboard") << u"tray"_s << true;
    }
    void undoAReplace()
    {
        QFETCH(QString, from);
        QFETCH(bool, typeBetween);

        Editor editor(paragraph, true);
        QVERIFY(editor.waitUntilActive());
        startProgram();
        QVERIFY(editor.waitUntilActive());
        keys(keysSelecting(paragraph, sentence));
        // Before any Replace, a program asking gets an answer that there is nothing to take back.
        const QDBusMessage nothing = undoOverTheBus();
        QCOMPARE(nothing.type(), QDBusMessage::ErrorMessage);
        QCOMPARE(nothing.errorMessage(),
            u"Nothing to undo: no rewrite has been written since Tessary started, or the last one was taken "
            "back already."_s);

        trigger();
        QTRY_COMPARE_WITH_TIMEOUT(log().count(u"🏁 [StreamDelegate] Stream completed"_s), 1, 15000);
        pressOnce(u"Replace"_s);
        QTRY_VERIFY_WITH_TIMEOUT(log().contains(u"🔄 [PopupView] Replace result: "_s), 10000);
        QVERIFY2(log().contains(u"✅ [AccessibilityHelper] AX replace successful"_s), qPrintable(log()));
        QString replaced = paragraph;
        replaced.replace(sentence, rewrite);
        QCOMPARE(editor.savedText(), replaced);

        if (typeBetween) {
            // Typed while the notice is up: the keys reach the editor, not the notice.
            QVERIFY(editor.waitUntilActive());
            keys({ u"ctrl+Home"_s, u"x"_s });
            replaced.prepend(u'x');
            QCOMPARE(editor.savedText(), replaced);
        }

        if (from == u"tray"_s)
            chooseUndoInTheTrayMenu();
        else if (from == u"bus"_s)
            QCOMPARE(undoOverTheBus().type(), QDBusMessage::ReplyMessage);
        else if (from == u"click"_s)
            clickOnce(u"Undo"_s);
        else
            pressOnce(u"Undo"_s);
        QTRY_VERIFY_WITH_TIMEOUT(log().contains(u"↩️ [Undo] Undo result: "_s), 10000);

        if (!typeBetween) {
            QVERIFY2(log().contains(u"↩️ [Undo] Undo result: true"_s), qPrintable(log()));
            QCOMPARE(editor.savedText(), paragraph);
            return;
        }
        QVERIFY2(log().contains(u"↩️ [Undo] Undo result: false"_s), qPrintable(log()));
        QVERIFY2(log().contains(u"❌ [AccessibilityHelper] Not undoing: Mousepad has other text where the "
                                "rewrite went, the text is on the clipboard"_s),
            qPrintable(log()));
        QCOMPARE(QString::fromUtf8(clipboard()), sentence);
        QCOMPARE(m_atspi.text(u"mousepad"_s), replaced);
        // The notice says why, over the accessibility bus too.
        QTRY_VERIFY_WITH_TIMEOUT(
            m_atspi.shows(u"The text in Mousepad has changed since the rewrite: the original is on the "
                          "clipboard."_s),
            5000);
    }

private:
    void startProgram()
    {
        QVERIFY(PopupRig::start(m_program, "[General]\napi_key=e2e-key\nupdate_check_enabled=false\n"));
    }
    static void trigger() { QDBusConnection::sessionBus().asyncCall(PopupRig::busCall(u"Trigger"_s)); }
    static QDBusMessage undoOverTheBus()
    {
        return QDBusConnection::sessionBus().call(PopupRig::busCall(u"UndoLastRewrite"_s));
    }
    void pressOnce(const QString &name) { QVERIFY2(PopupRig::pressOnce(m_atspi, name), qPrintable(name)); }
    // With the mouse, on the middle of the button: the notice stays behind the editor's
    // keyboard, so the click has to reach a window that is not active.
    void clickOnce(const QString &name)
    {
        QRect button;
        QTRY_VERIFY_WITH_TIMEOUT(!(button = m_atspi.screenRect(name)).isEmpty(), 10000);
        run(u"xdotool"_s,
            { u"mousemove"_s, QString::number(button.center().x()), QString::number(button.center().y()),
                u"click"_s, u"1"_s });
    }
    // The icon opens its menu on a click; "Undo last rewrite" is the second item.
    void chooseUndoInTheTrayMenu()
    {
        QString icon;
        QTRY_VERIFY_WITH_TIMEOUT(!(icon = windows(u"--classname"_s, u"tessary"_s).value(0)).isEmpty(), 10000);
        const qsizetype before = windows(u"--classname"_s, u"tessary"_s).size();
        run(u"xdotool"_s, { u"mousemove"_s, u"--window"_s, icon, u"8"_s, u"8"_s, u"click"_s, u"1"_s });
        QTRY_VERIFY_WITH_TIMEOUT(windows(u"--classname"_s, u"tessary"_s).size() > before, 10000);
        run(u"xdotool"_s, { u"key"_s, u"Down"_s, u"Down"_s, u"Return"_s });
    }
    const QString &log() const { return m_program->log; }

    FixtureServer m_server;
    AtspiClient m_atspi;
    QProcess m_tray;
    std::unique_ptr<TessaryProcess> m_program;
};

QTEST_MAIN(TestUndoDesktop)
#include "TestUndoDesktop.moc"
