// Guards the road on sway: `tessary --trigger` (what the user's bindsym runs) not
// starting a rewrite of the editor's sentence, the popup not taking the keyboard, Replace
// not written back, and for an editor off the accessibility bus, the copy or paste not
// typed through our virtual keyboard or the user's clipboard not given back.
#include "AtspiClient.h"
#include "FixtureServer.h"
#include "wlroots/SwayWorkspace.h"
#include "wlroots/VirtualKeyboardKeySynth.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

#include <linux/input-event-codes.h>

using namespace Qt::StringLiterals;

namespace {
const QString paragraph = u"Keep this. Please rewrite this sentence now. Keep that."_s;
const QString sentence = u"Please rewrite this sentence now."_s;
const QString rewrite = u"A sway rewrite."_s;

FixtureReply streamed(const FixtureRequest &)
{
    FixtureReply reply;
    reply.headers = { { "Content-Type", "text/event-stream" } };
    reply.body
        = "data: {\"choices\":[{\"delta\":{\"content\":\"" + rewrite.toUtf8() + "\"}}]}\n\ndata: [DONE]\n\n";
    return reply;
}

QByteArray run(const QString &program, const QStringList &arguments, const QByteArray &input = {})
{
    QProcess process;
    process.start(program, arguments);
    process.write(input);
    process.closeWriteChannel();
    return process.waitForFinished(5000) ? process.readAllStandardOutput() : QByteArray();
}
} // namespace

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
        FixtureServer service;
        QVERIFY(service.listen(quint16(qEnvironmentVariableIntValue("TESSARY_E2E_API_PORT"))));
        service.route("/api/v1/chat/completions", streamed);
        AtspiClient atspi;
        QVERIFY(atspi.connect());
        std::unique_ptr<VirtualKeyboardKeySynth> keys = VirtualKeyboardKeySynth::open();
        QVERIFY(keys);

        // Off the bus, the whole text is the selection: select-all is what a person types.
        const QString text = onAccessibilityBus ? paragraph : sentence;
        QTemporaryDir dir;
        QFile file(dir.filePath(u"text.txt"_s));
        QVERIFY(file.open(QIODevice::WriteOnly) && file.write(text.toUtf8()) > 0);
        file.close();
        QProcess editor;
        QProcessEnvironment editorEnv = QProcessEnvironment::systemEnvironment();
        editorEnv.insert(u"NO_AT_BRIDGE"_s, onAccessibilityBus ? u"0"_s : u"1"_s);
        editor.setProcessEnvironment(editorEnv);
        editor.start(u"mousepad"_s, { u"--disable-server"_s, file.fileName() });

        // The user's clipboard: an image, which must be there again after Replace.
        const QByteArray image = QByteArray::fromBase64("iVBORw0KGgoAAAANSUhEUgAAAAEAAAABCAYAAAAfFcSJAAAADUlE"
                                                        "QVR42mP8z8DwHwAFBQIAX8jx0gAAAABJRU5ErkJggg==");
        run(u"wl-copy"_s, { u"--type"_s, u"image/png"_s }, image);

        QDir(dir.path()).mkpath(u"config/Tessary"_s);
        QFile conf(dir.filePath(u"config/Tessary/Tessary.conf"_s));
        QVERIFY(conf.open(QIODevice::WriteOnly));
        conf.write("[General]\napi_key=e2e-key\nhumanize_examples=Hi all.\n");
        conf.close();
        const QString binary = qEnvironmentVariable("TESSARY_BINARY_DIR") + u"/tests/tessary-e2e"_s;
        QProcess program;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(u"XDG_CONFIG_HOME"_s, dir.filePath(u"config"_s));
        program.setProcessEnvironment(env);
        QString log;
        connect(&program, &QProcess::readyReadStandardOutput, this,
            [&] { log += QString::fromUtf8(program.readAllStandardOutput()); });
        program.start(binary);
        QTRY_VERIFY_WITH_TIMEOUT(log.contains(u">>> LAUNCHED"_s), 15000);

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

        QCOMPARE(QProcess::execute(binary, { u"--trigger"_s }), 0);
        QTRY_VERIFY2_WITH_TIMEOUT(
            log.contains(u"🎯 [AppDelegate] Stored previous app: mousepad"_s), qPrintable(log), 15000);
        QTRY_VERIFY2_WITH_TIMEOUT(
            log.contains(u"✅ [StreamDelegate] Stream completed successfully"_s), qPrintable(log), 15000);
        QVERIFY2(service.requests().last().body.contains(sentence.toUtf8()), qPrintable(log));

        // The popup has the keyboard: Ctrl+Enter replaces.
        keys->type(KEY_ENTER, { KEY_LEFTCTRL });
        const QString replaced = QString(text).replace(sentence, rewrite);
        if (onAccessibilityBus) {
            QTRY_COMPARE_WITH_TIMEOUT(atspi.text(u"mousepad"_s), replaced, 15000);
        } else {
            QTRY_VERIFY2_WITH_TIMEOUT(log.contains(u"Clipboard restored"_s), qPrintable(log), 15000);
        }
        QCOMPARE(run(u"wl-paste"_s, { u"--no-newline"_s, u"--type"_s, u"image/png"_s }), image);
        keys->type(KEY_S, { KEY_LEFTCTRL });
        QTRY_COMPARE_WITH_TIMEOUT(
            [&] {
                QFile saved(file.fileName());
                return saved.open(QIODevice::ReadOnly) ? QString::fromUtf8(saved.readAll()) : QString();
            }(),
            replaced, 10000);

        program.terminate();
        program.waitForFinished(5000);
        editor.kill();
        editor.waitForFinished();
    }
};

QTEST_GUILESS_MAIN(TestSwayRoad)
#include "TestSwayRoad.moc"
