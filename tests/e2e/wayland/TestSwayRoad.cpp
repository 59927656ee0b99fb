// Guards the road on sway: `tessary --trigger` (what the user's bindsym runs) not
// starting a rewrite of the editor's sentence, the popup not taking the keyboard, Replace
// not written back, and for an editor off the accessibility bus, the copy or paste not
// typed through our virtual keyboard or the user's clipboard not given back.
#include "AtspiClient.h"
#include "EditorRoad.h"
#include "Replies.h"
#include "TessaryProcess.h"
#include "wlroots/SwayWorkspace.h"
#include "wlroots/VirtualKeyboardKeySynth.h"

#include <QTest>

#include <linux/input-event-codes.h>

using namespace Qt::StringLiterals;
using namespace EditorRoad;

class TestSwayRoad : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void triggerCaptureAndReplace_data()
    {
        QTest::addColumn<bool>("onAccessibilityBus");
        QTest::newRow("accessibility bus") << true;
        QTest::newRow("clipboard, editor off the bus") << false;
    }

    void triggerCaptureAndReplace()
    {
        QFETCH(bool, onAccessibilityBus);
        const QString rewrite = u"A sway rewrite."_s;
        FixtureServer service;
        QVERIFY(service.listen(quint16(qEnvironmentVariableIntValue("TESSARY_E2E_API_PORT"))));
        service.route("/api/v1/chat/completions", eventStream({ rewrite.toUtf8() }));
        AtspiClient atspi;
        QVERIFY(atspi.connect());
        std::unique_ptr<VirtualKeyboardKeySynth> keys = VirtualKeyboardKeySynth::open();
        QVERIFY(keys);

        // Off the bus, the whole text is the selection: select-all is what a person types.
        const QString text = onAccessibilityBus ? paragraph : sentence;
        QTemporaryDir dir;
        const QString file = dir.filePath(u"text.txt"_s);
        QVERIFY(write(file, text.toUtf8()));
        QProcess editor;
        QProcessEnvironment editorEnv = QProcessEnvironment::systemEnvironment();
        editorEnv.insert(u"NO_AT_BRIDGE"_s, onAccessibilityBus ? u"0"_s : u"1"_s);
        editor.setProcessEnvironment(editorEnv);
        editor.start(u"mousepad"_s, { u"--disable-server"_s, file });
        run(u"wl-copy"_s, { u"--type"_s, u"image/png"_s }, image);
        TessaryProcess tessary(settings);
        QVERIFY(tessary.start());
        QTRY_VERIFY_WITH_TIMEOUT(tessary.log.contains(u">>> LAUNCHED"_s), 15000);

        SwayWorkspace workspace;
        QString front;
        QTRY_VERIFY_WITH_TIMEOUT(
            [&] {
                workspace.frontmostApplication([&](auto app) { front = app ? app->name : QString(); });
                return front == u"mousepad"_s;
            }(),
            15000);
        if (onAccessibilityBus) {
            QTRY_COMPARE_WITH_TIMEOUT(atspi.text(u"mousepad"_s), paragraph, 15000);
            const qsizetype start = paragraph.indexOf(sentence);
            QVERIFY(atspi.select(u"mousepad"_s, int(start), int(start + sentence.size())));
        } else {
            keys->type(KEY_A, { KEY_LEFTCTRL });
        }

        QCOMPARE(QProcess::execute(TessaryProcess::program(), { u"--trigger"_s }), 0);
        const QString &log = tessary.log;
        QTRY_VERIFY2_WITH_TIMEOUT(
            log.contains(u"🎯 [AppDelegate] Stored previous app: mousepad"_s), qPrintable(log), 15000);
        QTRY_VERIFY2_WITH_TIMEOUT(
            log.contains(u"✅ [StreamDelegate] Stream completed successfully"_s), qPrintable(log), 15000);
        QVERIFY2(service.requests().last().body.contains(sentence.toUtf8()), qPrintable(log));

        // The popup has the keyboard: Ctrl+Enter replaces.
        keys->type(KEY_ENTER, { KEY_LEFTCTRL });
        const QString replaced = QString(text).replace(sentence, rewrite);
        if (onAccessibilityBus)
            QTRY_COMPARE_WITH_TIMEOUT(atspi.text(u"mousepad"_s), replaced, 15000);
        else
            QTRY_VERIFY2_WITH_TIMEOUT(log.contains(u"Clipboard restored"_s), qPrintable(log), 15000);
        QCOMPARE(run(u"wl-paste"_s, { u"--no-newline"_s, u"--type"_s, u"image/png"_s }), image);
        keys->type(KEY_S, { KEY_LEFTCTRL });
        QTRY_COMPARE_WITH_TIMEOUT(contents(file), replaced, 10000);

        editor.kill();
        editor.waitForFinished();
    }
};

QTEST_GUILESS_MAIN(TestSwayRoad)
#include "TestSwayRoad.moc"
