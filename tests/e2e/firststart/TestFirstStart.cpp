// Faults: a first start that needs a file edited or a token copied; a model server, service or
// paired server not offered or not reached; a keyboard that cannot pick one or type the key;
// a key kept in the settings file or a log; a first rewrite that misses the model or the editor.
#include "ClosedPort.h"
#include "DesktopFixture.h"
#include "Replies.h"
#include "Selection.h"
#include "TessaryProcess.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::StringLiterals;
using namespace Desktop;

namespace {

const QString paragraph = u"First words stay. Please rewrite this sentence now. Last words stay too."_s;
const QString sentence = u"Please rewrite this sentence now."_s;
const QString rewrite = u"A rewrite from the local model."_s;

// Where the first rewrite goes: a model server found on this computer, the hosted
// service (the built-in address) with a key, or a tessary-server of this user's.
enum class Road { LocalModel, HostedService, PairedServer };

// What a local OpenAI-compatible model server answers: its one model, and a stream.
FixtureReply modelList(const FixtureRequest &)
{
    return jsonReply(200, R"({"object":"list","data":[{"id":"stand-in-7b","object":"model"}]})");
}

FixtureReply completion(const FixtureRequest &)
{
    QList<QByteArray> fragments;
    for (qsizetype at = 0; at < rewrite.size(); at += 8)
        fragments.append(rewrite.mid(at, 8).toUtf8());
    return eventStream(fragments);
}

const auto type = [](const QString &text) { run(u"xdotool"_s, { u"type"_s, u"--delay"_s, u"5"_s, text }); };

} // namespace

class TestFirstStart : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void firstRewrite_data();
    void firstRewrite();
};

void TestFirstStart::firstRewrite_data()
{
    QTest::addColumn<Road>("road");
    QTest::addColumn<QString>("key"); // typed by the user; the bearer the service gets

    QTest::newRow("local model server") << Road::LocalModel << QString();
    QTest::newRow("hosted service with a key") << Road::HostedService << u"sk-e2e-first-start-4d7e21b9"_s;
    QTest::newRow("paired tessary-server") << Road::PairedServer << QString();
}

// A throw-away home with nothing in it and one road to a model: the keyboard alone goes through
// whatever the program asks, and the first Ctrl+Alt+H in the editor streams a rewrite and replaces.
void TestFirstStart::firstRewrite()
{
    QFETCH(Road, road);
    QFETCH(QString, key);
    QVERIFY2(QDBusConnection::sessionBus().interface()->isServiceRegistered(u"org.freedesktop.secrets"_s),
        "no session bus or keyring: run inside scripts/headless-session");
    // One keyring serves every row: a key an earlier row stored would be sent instead of the token.
    const QStringList keyEntry { u"server"_s, u"Tessary"_s, u"user"_s, u"api_key"_s };
    QProcess::execute(u"secret-tool"_s, QStringList { u"clear"_s } + keyEntry);

    // The hosted service and a paired server are found at the built-in address.
    const auto servicePort = quint16(qEnvironmentVariableIntValue("TESSARY_E2E_API_PORT"));
    FixtureServer stand;
    QVERIFY(stand.listen(road == Road::HostedService ? servicePort : 0));
    stand.route("/v1/models", modelList);
    stand.route("/v1/chat/completions", completion);
    stand.route("/api/v1/chat/completions", completion);

    Editor editor(paragraph, true);
    QVERIFY(editor.waitUntilActive());

    const quint16 searched = road == Road::LocalModel ? stand.port() : closedPort();
    TessaryProcess program({}, { u"TESSARY_LOCAL_MODEL_PORTS=%1"_s.arg(searched), u"TESSARY_LOG=full"_s });
    program.setProcessChannelMode(QProcess::MergedChannels); // all it prints is searched for secrets
    const QString &log = program.log;
    const auto fileText = [&program](const QString &relative) {
        QFile file(program.path(relative));
        return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()).trimmed() : QString();
    };
    const auto settingsText = [&] { return fileText(u"Tessary/Tessary.conf"_s); };

    // The companion server as the session starts it, in the same home: it finds the stand-in by itself.
    QProcess server;
    if (road == Road::PairedServer) {
        QProcessEnvironment environment = program.processEnvironment();
        environment.insert(u"TESSARY_LOCAL_MODEL_PORTS"_s, QString::number(stand.port()));
        server.setProcessEnvironment(environment);
        server.setProcessChannelMode(QProcess::MergedChannels);
        server.start(QStringLiteral(TESSARY_SERVER_PATH), { u"--port=%1"_s.arg(servicePort) });
        QByteArray said;
        QTRY_VERIFY2_WITH_TIMEOUT(
            (said += server.readAll()).contains("listening on"), said.constData(), 10000);
    }

    QVERIFY(program.start());
    // Nothing is stored yet: the welcome window opens in front, and the keyboard does the rest.
    QTRY_VERIFY_WITH_TIMEOUT(windowPid(activeWindow()) == program.processId(), 15000);
    keys({ u"Return"_s });
    type(u"my words"_s);
    keys({ u"ctrl+Return"_s });
    // The model page takes the first model found as soon as the search has answered. Return
    // finishes; with no model found, Settings opens with the key field of the hosted service.
    // A paired server is usable already: the sample page finished, with no model page.
    if (road == Road::LocalModel)
        QTRY_VERIFY2_WITH_TIMEOUT(settingsText().contains(u"model=stand-in-7b"_s), qPrintable(log), 15000);
    if (road != Road::PairedServer)
        keys({ u"Return"_s });
    QTRY_VERIFY2_WITH_TIMEOUT(
        settingsText().contains(u"humanize_examples=my words"_s), qPrintable(settingsText()), 10000);
    if (road == Road::HostedService) {
        QTRY_COMPARE_WITH_TIMEOUT(run(u"xdotool"_s, { u"getactivewindow"_s, u"getwindowname"_s }).trimmed(),
            "Tessary — Settings", 15000);
        type(key);
        keys({ u"Return"_s });
    }

    // The window goes and the editor is in front again; the first shortcut rewrites.
    QTRY_VERIFY_WITH_TIMEOUT(windowPid(activeWindow()) == editor.pid(), 10000);
    keys(keysSelecting(paragraph, sentence));
    keys({ u"ctrl+alt+h"_s });
    const auto rewrites = [&stand] { return stand.requests("/chat/completions"); };
    QTRY_COMPARE_WITH_TIMEOUT(rewrites().size(), 1, 15000);
    const QJsonObject body = QJsonDocument::fromJson(rewrites().first().body).object();
    QCOMPARE(body.value(u"model"_s).toString(), road == Road::HostedService ? QString() : u"stand-in-7b"_s);
    QCOMPARE(
        rewrites().first().header("authorization"), key.isEmpty() ? QByteArray() : "Bearer " + key.toUtf8());
    const QJsonArray messages = body.value(u"messages"_s).toArray();
    QCOMPARE(messages.last().toObject().value(u"content"_s).toString(),
        (road == Road::HostedService ? u"Rewrite this in my voice:\n\n"_s : QString()) + sentence);
    QVERIFY(QJsonDocument(body).toJson().contains("my words")); // the sample typed in the welcome window

    QTRY_VERIFY2_WITH_TIMEOUT(
        log.contains(u"✅ [StreamDelegate] Stream completed successfully"_s), qPrintable(log), 10000);
    keys({ u"ctrl+Return"_s }); // Replace
    QTRY_VERIFY2_WITH_TIMEOUT(
        log.contains(u"✅ [AccessibilityHelper] AX replace successful"_s), qPrintable(log), 10000);
    QString expected = paragraph;
    expected.replace(sentence, rewrite);
    QCOMPARE(editor.savedText(), expected);

    // Once the program has ended, the key is in the keyring only, and neither it nor the paired
    // server's token is in the settings file or in anything the program printed.
    for (QProcess *ending : { static_cast<QProcess *>(&program), &server }) {
        ending->terminate();
        QVERIFY(ending->state() == QProcess::NotRunning || ending->waitForFinished(5000));
        QCOMPARE(ending->exitStatus(), QProcess::NormalExit);
        QCOMPARE(ending->exitCode(), 0);
    }
    if (!key.isEmpty())
        QCOMPARE(QString::fromUtf8(run(u"secret-tool"_s, QStringList { u"lookup"_s } + keyEntry)), key);
    const QString secret = road == Road::PairedServer ? fileText(u"tessary-server/client-token"_s) : key;
    if (!secret.isEmpty()) {
        QVERIFY2(!settingsText().contains(secret), qPrintable(settingsText()));
        QVERIFY2(!(log + QString::fromUtf8(program.readAll())).contains(secret), qPrintable(log));
    }
}

QTEST_MAIN(TestFirstStart)
#include "TestFirstStart.moc"
