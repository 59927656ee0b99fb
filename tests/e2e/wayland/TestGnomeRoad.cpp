// Guards the road on GNOME: the sentence not read from a Qt editor over the accessibility
// bus, Replace not written back into it, and "Add Ctrl+Alt+H" not reaching GNOME's
// settings daemon: the shortcut not grabbed, or its command not reaching the program.
#include "AtspiClient.h"
#include "EditorRoad.h"
#include "GnomeShellKeys.h"
#include "Replies.h"
#include "TessaryProcess.h"
#include "gnome/GnomeKeybindingLoader.h"

#include <QDBusInterface>
#include <QFile>
#include <QPlainTextEdit>

#include <future>

using namespace Qt::StringLiterals;
using namespace EditorRoad;
using GnomeShellKeys::pressKeys;

namespace {

// Pressed from another thread: the accessibility bus asks this process about its own
// editor too, and the main thread must keep answering meanwhile.
bool press(AtspiClient &atspi, const QString &button)
{
    auto pressed = std::async(std::launch::async, [&] { return atspi.press(button); });
    return QTest::qWaitFor(
               [&] { return pressed.wait_for(std::chrono::seconds(0)) == std::future_status::ready; }, 60000)
        && pressed.get();
}
} // namespace

class TestGnomeRoad : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void triggerCaptureAndReplace_data()
    {
        QTest::addColumn<bool>("throughShortcut");
        QTest::newRow("tessary --trigger") << false;
        QTest::newRow("Ctrl+Alt+H added to GNOME's shortcuts by the plugin") << true;
    }

    void triggerCaptureAndReplace()
    {
        QFETCH(bool, throughShortcut);
        FixtureServer service;
        QVERIFY(service.listen(quint16(qEnvironmentVariableIntValue("TESSARY_E2E_API_PORT"))));
        service.route("/api/v1/chat/completions", eventStream({ "A GNOME rewrite." }));
        AtspiClient atspi;
        QVERIFY(atspi.connect());
        // The editor lives in this process: selected through its own API, read back the same way.
        QPlainTextEdit editor(paragraph);
        editor.show();
        QTRY_VERIFY_WITH_TIMEOUT(editor.hasFocus(), 10000);
        QTextCursor cursor = editor.textCursor();
        cursor.setPosition(int(paragraph.indexOf(sentence)));
        cursor.setPosition(int(paragraph.indexOf(sentence) + sentence.size()), QTextCursor::KeepAnchor);
        editor.setTextCursor(cursor);

        TessaryProcess program(settings);
        QVERIFY(program.start());
        QTRY_VERIFY_WITH_TIMEOUT(program.log.contains(u">>> LAUNCHED"_s), 15000);
        if (throughShortcut) {
            // The settings daemon asks the shell to grab what it read from dconf.
            QProcess monitor;
            monitor.start(u"dbus-monitor"_s, { u"--session"_s, u"interface='org.gnome.Shell'"_s });
            QTRY_VERIFY_WITH_TIMEOUT(monitor.bytesAvailable() > 0, 5000);
            // Through the plugin found beside the program, as the program finds it.
            const std::unique_ptr<DesktopShortcut> keybinding
                = loadGnomeKeybinding(TessaryProcess::program());
            QVERIFY(keybinding->canAdd());
            std::optional<QString> error;
            keybinding->add([&error](const QString &message) { error = message; });
            QTRY_COMPARE(error, QString());
            QVERIFY(keybinding->isBound());
            QByteArray grabs;
            QTRY_VERIFY_WITH_TIMEOUT((grabs += monitor.readAll()).contains("\"<Control><Alt>h\""), 10000);
            QVERIFY(pressKeys(u"Control_L+Alt_L+h"_s));
        } else {
            QCOMPARE(QProcess::execute(TessaryProcess::program(), { u"--trigger"_s }), 0);
        }
        QTRY_VERIFY2_WITH_TIMEOUT(program.log.contains(u"✅ [StreamDelegate] Stream completed successfully"_s),
            qPrintable(program.log), 15000);
        QVERIFY2(service.requests("/chat/completions").last().body.contains(sentence.toUtf8()),
            qPrintable(program.log));
        // As a screen reader would (nothing types here), once: a try macro would press again.
        QVERIFY(QTest::qWaitFor([&] { return press(atspi, u"Replace"_s); }, 20000));
        QTRY_COMPARE_WITH_TIMEOUT(
            editor.toPlainText(), QString(paragraph).replace(sentence, u"A GNOME rewrite."_s), 15000);
        QTRY_VERIFY(program.log.contains(u"✅ [AccessibilityHelper] AX replace successful"_s));
    }
};

QTEST_MAIN(TestGnomeRoad)
#include "TestGnomeRoad.moc"
