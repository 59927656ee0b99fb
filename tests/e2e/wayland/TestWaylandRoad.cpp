// Guards the whole road on Plasma and sway: the shortcut (the portal's, or the
// `tessary --trigger` a bindsym runs) not starting a rewrite of the editor's sentence, the
// popup not taking the keyboard, Replace not written back, and for an editor off the
// accessibility bus, the copy or paste not typed or the user's clipboard not given back;
// a saved instruction's own shortcut (the portal's, or its command line) not rewriting with it.
#include "AtspiClient.h"
#include "DesktopTools.h"
#include "EditorRoad.h"
#include "PortalTypist.h"
#include "Replies.h"
#include "ScratchFiles.h"
#include "TessaryProcess.h"
#include "kwin/KWinWorkspace.h"
#include "wlroots/SwayWorkspace.h"
#include "wlroots/VirtualKeyboardKeySynth.h"

#include <QDBusInterface>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace EditorRoad;
using Desktop::run;

namespace {

// What differs between the compositors: how a person's keys are typed, how the shortcut
// fires, and who says which window is in front.
struct Desk
{
    std::function<bool()> ready;
    std::function<void(int key)> ctrl;
    // Ctrl+Alt+H's; with words, the shortcut of the saved instruction that has them (the first).
    std::function<void(const QString &instruction)> shortcut;
    std::unique_ptr<Workspace> workspace;
};

Desk plasma()
{
    auto typist = std::make_shared<PortalTypist>();
    // The desktop's shortcut daemon stands for the key press: it invokes the shortcut
    // Tessary registered through the portal.
    const auto shortcut = [](const QString &instruction) {
        const QString name = instruction.isEmpty() ? u"rewrite-selection"_s : u"instruction-0"_s;
        QDBusInterface component(
            u"org.kde.kglobalaccel"_s, u"/component/tessary"_s, u"org.kde.kglobalaccel.Component"_s);
        QTRY_VERIFY_WITH_TIMEOUT(component.call(u"shortcutNames"_s, u"default"_s)
                                     .arguments()
                                     .value(0)
                                     .toStringList()
                                     .contains(name),
            15000);
        component.call(u"invokeShortcut"_s, name, u"default"_s);
    };
    return { [typist] { return typist->isReady(); }, [typist](int key) { typist->ctrl(key); }, shortcut,
        std::make_unique<KWinWorkspace>() };
}

Desk sway()
{
    std::shared_ptr<VirtualKeyboardKeySynth> keys = VirtualKeyboardKeySynth::open();
    // What a bindsym of the user's runs.
    const auto shortcut = [](const QString &instruction) {
        QStringList arguments { u"--trigger"_s };
        if (!instruction.isEmpty())
            arguments << u"--instruction"_s << instruction;
        QCOMPARE(QProcess::execute(TessaryProcess::program(), arguments), 0);
    };
    return { [keys] { return keys != nullptr; }, [keys](int key) { keys->type(key, { KEY_LEFTCTRL }); },
        shortcut, std::make_unique<SwayWorkspace>(qEnvironmentVariable("SWAYSOCK")) };
}

// Keys go to the window in front, as a person types once they see it there: asks, one
// question at a time, until the process in front is pid.
bool inFront(Workspace &workspace, qint64 pid)
{
    for (int question = 0; question < 200; ++question) {
        const auto front = Desktop::answerOf<std::optional<RunningApplication>>(
            [&](auto done) { workspace.frontmostApplication(done); });
        if (!front || (*front && (*front)->pid == pid))
            return front.has_value();
    }
    return false;
}

} // namespace

class TestWaylandRoad : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void shortcutCaptureAndReplace_data()
    {
        QTest::addColumn<bool>("onAccessibilityBus");
        QTest::addColumn<QString>("instruction"); // the saved instruction whose shortcut is pressed
        QTest::newRow("accessibility bus") << true << QString();
        QTest::newRow("clipboard, editor off the bus") << false << QString();
        QTest::newRow("a saved instruction's own shortcut") << true << u"in German"_s;
    }

    void shortcutCaptureAndReplace()
    {
        QFETCH(bool, onAccessibilityBus);
        QFETCH(QString, instruction);
        const Desk desk = qEnvironmentVariable("XDG_CURRENT_DESKTOP") == u"sway"_s ? sway() : plasma();
        QTRY_VERIFY_WITH_TIMEOUT(desk.ready(), 10000);
        const QString rewrite = u"A Wayland rewrite."_s;
        FixtureServer service;
        QVERIFY(service.listen(quint16(qEnvironmentVariableIntValue("TESSARY_E2E_API_PORT"))));
        service.route("/api/v1/chat/completions", eventStream({ rewrite.toUtf8() }));
        AtspiClient atspi;
        QVERIFY(atspi.connect());

        // Off the bus, the whole text is the selection: select-all is what a person types.
        const QString text = onAccessibilityBus ? paragraph : sentence;
        QTemporaryDir dir;
        const QString file = dir.filePath(u"text.txt"_s);
        QVERIFY(Desktop::writeFile(file, text.toUtf8()));
        QProcess editor;
        QProcessEnvironment editorEnv = QProcessEnvironment::systemEnvironment();
        editorEnv.insert(u"NO_AT_BRIDGE"_s, onAccessibilityBus ? u"0"_s : u"1"_s);
        editor.setProcessEnvironment(editorEnv);
        editor.start(u"mousepad"_s, { u"--disable-server"_s, file });
        run(u"wl-copy"_s, { u"--type"_s, u"image/png"_s }, image);
        TessaryProcess tessary(settings + "saved_instructions=in German\ninstruction_shortcuts=Ctrl+Alt+J\n");
        QVERIFY(tessary.start());
        const QString &log = tessary.log;
        QTRY_VERIFY_WITH_TIMEOUT(log.contains(u">>> LAUNCHED"_s), 15000);

        QVERIFY(inFront(*desk.workspace, editor.processId()));
        if (onAccessibilityBus) {
            QTRY_COMPARE_WITH_TIMEOUT(atspi.text(u"mousepad"_s), paragraph, 15000);
            const qsizetype start = paragraph.indexOf(sentence);
            QVERIFY(atspi.select(u"mousepad"_s, int(start), int(start + sentence.size())));
        } else {
            desk.ctrl(KEY_A);
        }

        desk.shortcut(instruction);
        QTRY_VERIFY2_WITH_TIMEOUT(
            log.contains(u"🎯 [AppDelegate] Stored previous app: mousepad"_s), qPrintable(log), 15000);
        QTRY_VERIFY2_WITH_TIMEOUT(
            log.contains(u"✅ [StreamDelegate] Stream completed successfully"_s), qPrintable(log), 15000);
        QVERIFY2(
            service.requests("/chat/completions").last().body.contains(sentence.toUtf8()), qPrintable(log));
        QCOMPARE(service.requests("/chat/completions").last().body.contains(R"("instruction":"in German")"),
            !instruction.isEmpty());

        // The popup has the keyboard: Ctrl+Enter replaces.
        QVERIFY(inFront(*desk.workspace, tessary.processId()));
        desk.ctrl(KEY_ENTER);
        const QString replaced = QString(text).replace(sentence, rewrite);
        if (onAccessibilityBus) {
            QTRY_VERIFY2_WITH_TIMEOUT(atspi.text(u"mousepad"_s) == replaced, qPrintable(log), 15000);
            QTRY_VERIFY2_WITH_TIMEOUT(
                log.contains(u"✅ [AccessibilityHelper] AX replace successful"_s), qPrintable(log), 5000);
        } else {
            QTRY_VERIFY2_WITH_TIMEOUT(log.contains(u"Clipboard restored"_s), qPrintable(log), 15000);
        }
        QCOMPARE(run(u"wl-paste"_s, { u"--no-newline"_s, u"--type"_s, u"image/png"_s }), image);
        desk.ctrl(KEY_S);
        QTRY_COMPARE_WITH_TIMEOUT(QString::fromUtf8(ScratchFiles::read(file)), replaced, 10000);

        editor.kill();
        editor.waitForFinished();
    }
};

QTEST_GUILESS_MAIN(TestWaylandRoad)
#include "TestWaylandRoad.moc"
