// Guards the whole road on Plasma Wayland: the shortcut not reaching Tessary through the
// portal, the sentence not read from the editor, Replace not written back into it.
#include "AtspiClient.h"
#include "FixtureServer.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusInterface>
#include <QDBusReply>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {
const QString paragraph = u"Keep this. Please rewrite this sentence now. Keep that."_s;
const QString sentence = u"Please rewrite this sentence now."_s;
const QString rewrite = u"A Wayland rewrite."_s;

FixtureReply streamed(const FixtureRequest &)
{
    FixtureReply reply;
    reply.headers = { { "Content-Type", "text/event-stream" } };
    reply.body
        = "data: {\"choices\":[{\"delta\":{\"content\":\"" + rewrite.toUtf8() + "\"}}]}\n\ndata: [DONE]\n\n";
    return reply;
}
} // namespace

class TestWaylandRoad : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void shortcutCaptureAndReplaceOverTheAccessibilityBus()
    {
        FixtureServer service;
        QVERIFY(service.listen(quint16(qEnvironmentVariableIntValue("TESSARY_E2E_API_PORT"))));
        service.route("/api/v1/chat/completions", streamed);
        AtspiClient atspi;
        QVERIFY(atspi.connect());

        QTemporaryDir dir;
        QFile file(dir.filePath(u"text.txt"_s));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(paragraph.toUtf8());
        file.close();
        QProcess editor;
        editor.start(u"mousepad"_s, { u"--disable-server"_s, file.fileName() });
        QTRY_COMPARE_WITH_TIMEOUT(atspi.text(u"mousepad"_s), paragraph, 15000);

        QDir(dir.path()).mkpath(u"config/Tessary"_s);
        QFile conf(dir.filePath(u"config/Tessary/Tessary.conf"_s));
        QVERIFY(conf.open(QIODevice::WriteOnly));
        conf.write("[General]\napi_key=e2e-key\nhumanize_examples=Hi all.\n");
        conf.close();
        QProcess program;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(u"XDG_CONFIG_HOME"_s, dir.filePath(u"config"_s));
        program.setProcessEnvironment(env);
        QString log;
        connect(&program, &QProcess::readyReadStandardOutput, this,
            [&] { log += QString::fromUtf8(program.readAllStandardOutput()); });
        program.start(qEnvironmentVariable("TESSARY_BINARY_DIR") + u"/tests/tessary-e2e"_s);
        QTRY_VERIFY_WITH_TIMEOUT(log.contains(u">>> LAUNCHED"_s), 15000);

        // The desktop's shortcut daemon stands for the key press: it invokes the shortcut
        // Tessary registered through the portal.
        const qsizetype start = paragraph.indexOf(sentence);
        QVERIFY(atspi.select(u"mousepad"_s, int(start), int(start + sentence.size())));
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

        QTRY_VERIFY_WITH_TIMEOUT(log.contains(u"🎯 [AppDelegate] Stored previous app: mousepad"_s), 15000);
        QTRY_VERIFY_WITH_TIMEOUT(log.contains(u"✅ [StreamDelegate] Stream completed successfully"_s), 15000);
        QVERIFY2(service.requests().last().body.contains(sentence.toUtf8()), qPrintable(log));

        bool pressed = false;
        QTRY_VERIFY_WITH_TIMEOUT(pressed || (pressed = atspi.press(u"Replace"_s)), 10000);
        QTRY_COMPARE_WITH_TIMEOUT(
            atspi.text(u"mousepad"_s), QString(paragraph).replace(sentence, rewrite), 15000);
        QTRY_VERIFY2_WITH_TIMEOUT(
            log.contains(u"✅ [AccessibilityHelper] AX replace successful"_s), qPrintable(log), 5000);

        program.terminate();
        program.waitForFinished(5000);
        editor.kill();
        editor.waitForFinished();
    }
};

QTEST_GUILESS_MAIN(TestWaylandRoad)
#include "TestWaylandRoad.moc"
