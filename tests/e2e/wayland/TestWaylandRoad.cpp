// Guards the whole road on Plasma Wayland: the shortcut not reaching Tessary through the
// portal, the sentence not read from the editor, Replace not written back into it, and
// for an editor off the accessibility bus, the copy or paste not typed or the user's
// clipboard not given back.
#include "AtspiClient.h"
#include "EditorRoad.h"
#include "PortalTypist.h"
#include "Replies.h"
#include "TessaryProcess.h"
#include "kwin/KWinWorkspace.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusInterface>
#include <QDBusReply>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace EditorRoad;

class TestWaylandRoad : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void shortcutCaptureAndReplace_data()
    {
        QTest::addColumn<bool>("onAccessibilityBus");
        QTest::newRow("accessibility bus") << true;
        QTest::newRow("clipboard, editor off the bus") << false;
    }

    void shortcutCaptureAndReplace()
    {
        QFETCH(bool, onAccessibilityBus);
        const QString rewrite = u"A Wayland rewrite."_s;
        FixtureServer service;
        QVERIFY(service.listen(quint16(qEnvironmentVariableIntValue("TESSARY_E2E_API_PORT"))));
        service.route("/api/v1/chat/completions", eventStream({ rewrite.toUtf8() }));
        AtspiClient atspi;
        QVERIFY(atspi.connect());
        PortalTypist keys;
        QTRY_VERIFY_WITH_TIMEOUT(keys.isReady(), 10000);

        // Off the bus, the whole text is the selection: select-all is what a person types.
        const QString text = onAccessibilityBus ? paragraph : sentence;
        QTemporaryDir dir;
        const QString file = dir.filePath(u"text.txt"_s);
        QVERIFY(write(file, text.toUtf8()));
        QProcess editor;
        QProcessEnvironment editorEnv = QProcessEnvironment::systemEnvironment();
        if (!onAccessibilityBus)
            editorEnv.insert(u"NO_AT_BRIDGE"_s, u"1"_s);
        editor.setProcessEnvironment(editorEnv);
        editor.start(u"mousepad"_s, { u"--disable-server"_s, file });

        run(u"wl-copy"_s, { u"--type"_s, u"image/png"_s }, image);
        TessaryProcess tessary(settings);
        QVERIFY(tessary.start());
        const QString &log = tessary.log;
        QTRY_VERIFY_WITH_TIMEOUT(log.contains(u">>> LAUNCHED"_s), 15000);

        if (onAccessibilityBus) {
            QTRY_COMPARE_WITH_TIMEOUT(atspi.text(u"mousepad"_s), paragraph, 15000);
            const qsizetype start = paragraph.indexOf(sentence);
            QVERIFY(atspi.select(u"mousepad"_s, int(start), int(start + sentence.size())));
        } else {
            KWinWorkspace workspace;
            QString front;
            QTRY_VERIFY_WITH_TIMEOUT(
                [&] {
                    workspace.frontmostApplication([&](auto app) { front = app ? app->name : QString(); });
                    return front == u"mousepad"_s;
                }(),
                15000);
            keys.ctrl(KEY_A);
        }

        // The desktop's shortcut daemon stands for the key press: it invokes the shortcut
        // Tessary registered through the portal.
        const QString component = u"/component/tessary"_s;
        QTRY_VERIFY_WITH_TIMEOUT(
            QDBusInterface(u"org.kde.kglobalaccel"_s, component, u"org.kde.kglobalaccel.Component"_s)
                .call(u"shortcutNames"_s, u"default"_s)
                .arguments()
                .value(0)
                .toStringList()
                .contains(u"rewrite-selection"_s),
            15000);
        QDBusInterface(u"org.kde.kglobalaccel"_s, component, u"org.kde.kglobalaccel.Component"_s)
            .call(u"invokeShortcut"_s, u"rewrite-selection"_s, u"default"_s);

        QTRY_VERIFY2_WITH_TIMEOUT(
            log.contains(u"🎯 [AppDelegate] Stored previous app: mousepad"_s), qPrintable(log), 15000);
        QTRY_VERIFY2_WITH_TIMEOUT(
            log.contains(u"✅ [StreamDelegate] Stream completed successfully"_s), qPrintable(log), 15000);
        QVERIFY2(service.requests().last().body.contains(sentence.toUtf8()), qPrintable(log));

        // The popup has the keyboard: Ctrl+Enter replaces.
        keys.ctrl(KEY_ENTER);
        const QString replaced = QString(text).replace(sentence, rewrite);
        if (onAccessibilityBus) {
            QTRY_COMPARE_WITH_TIMEOUT(atspi.text(u"mousepad"_s), replaced, 15000);
            QTRY_VERIFY2_WITH_TIMEOUT(
                log.contains(u"✅ [AccessibilityHelper] AX replace successful"_s), qPrintable(log), 5000);
        } else {
            QTRY_VERIFY2_WITH_TIMEOUT(log.contains(u"Clipboard restored"_s), qPrintable(log), 15000);
        }
        QCOMPARE(run(u"wl-paste"_s, { u"--no-newline"_s, u"--type"_s, u"image/png"_s }), image);
        keys.ctrl(KEY_S);
        QTRY_COMPARE_WITH_TIMEOUT(contents(file), replaced, 10000);

        editor.kill();
        editor.waitForFinished();
    }
};

QTEST_GUILESS_MAIN(TestWaylandRoad)
#include "TestWaylandRoad.moc"
