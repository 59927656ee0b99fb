// Faults: a direct request to a model server built wrong, and a failure told in words that do
// not say what to do.
#include "ClosedPort.h"
#include "FixtureServer.h"
#include "HumanizeService.h"
#include "Replies.h"
#include "RewriteRecorder.h"
#include "ScratchFiles.h"
#include "StorageManager.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

using Provider = StorageManager::Provider;

// The direct path to a model server, and what the user reads when any path fails.
class TestModelClient : public QObject
{
    Q_OBJECT

private:
    ScratchFiles m_files;

    static void chooseModel(StorageManager &storage, Provider provider, const QString &base,
        const QString &model, const QString &key = {})
    {
        storage.setProvider(provider);
        storage.setModelBase(base);
        storage.setModel(model);
        storage.setModelKey(key);
    }

private Q_SLOTS:
    // The program builds the prompt itself and streams from the model server.
    void directRequest_data()
    {
        QTest::addColumn<int>("provider");
        QTest::addColumn<QString>("key");
        QTest::addColumn<QString>("basePath");
        QTest::newRow("local model, no key") << int(Provider::LocalModel) << QString() << u"/v1"_s;
        QTest::newRow("service with a key, base with a slash")
            << int(Provider::ModelService) << u"sk-test"_s << u"/v1/"_s;
    }

    void directRequest()
    {
        QFETCH(int, provider);
        QFETCH(QString, key);
        QFETCH(QString, basePath);

        FixtureServer server;
        QVERIFY(server.listen());
        server.route("/v1/chat/completions", eventStream({ "Hi", " there" }));
        StorageManager storage(m_files.newPath(), u"http://127.0.0.1:%1/api/v1"_s.arg(closedPort()));
        chooseModel(
            storage, Provider(provider), server.url(basePath.toUtf8()).toString(), u"llama3.1:8b"_s, key);
        storage.setExamples({ u"Cheers, Sam"_s, u"See you at noon!"_s });

        HumanizeService service(storage);
        RewriteRecorder recorder;
        const auto request
            = service.humanize(u"Dear sir, the meeting is moved."_s, u"casual"_s, recorder.callbacks());
        QTRY_COMPARE(recorder.calls, (QStringList { u"token:Hi"_s, u"token: there"_s, u"complete"_s }));

        QCOMPARE(server.requests().size(), 1);
        const FixtureRequest sent = server.requests().first();
        QCOMPARE(sent.method, QByteArray("POST"));
        QCOMPARE(sent.path, QByteArray("/v1/chat/completions"));
        QCOMPARE(sent.header("authorization"), key.isEmpty() ? QByteArray() : "Bearer " + key.toUtf8());
        const QJsonObject body = QJsonDocument::fromJson(sent.body).object();
        QCOMPARE(body.value("model"_L1).toString(), u"llama3.1:8b"_s);
        QCOMPARE(body.value("stream"_L1).toBool(), true);
        const QJsonArray messages = body.value("messages"_L1).toArray();
        QCOMPARE(messages.size(), 2);
        const QString system = messages.at(0)["content"_L1].toString();
        for (const auto part : { "Cheers, Sam"_L1, "See you at noon!"_L1, "casual:"_L1 })
            QVERIFY2(system.contains(part), qPrintable(system));
        QCOMPARE(messages.at(1),
            QJsonValue(QJsonObject {
                { u"role"_s, u"user"_s }, { u"content"_s, u"Dear sir, the meeting is moved."_s } }));
        QVERIFY(!body.contains("examples"_L1)); // the Tessary service's format is not sent here
    }

    // Every failure ends in a sentence saying what to do.
    void failureMessages_data()
    {
        QTest::addColumn<int>("provider");
        QTest::addColumn<QString>("server"); // what answers: "closed", "tls", or the scripted reply
        QTest::addColumn<FixtureReply>("answer");
        QTest::addColumn<QString>("model");
        QTest::addColumn<QString>("message"); // %1: host:port of the server

        const FixtureReply none;
        // The head of an event stream, then nothing.
        const FixtureReply stall { .headers = { { "Content-Type", "text/event-stream" } },
            .framing = FixtureReply::Framing::Chunked,
            .end = FixtureReply::End::Stall,
            .stopAt = 0 };
        const auto row
            = [](const char *name, Provider provider, const FixtureReply &answer, const QString &model,
                  const QString &message, const QString &server = u"reply"_s) {
                  QTest::newRow(name) << int(provider) << server << answer << model << message;
              };
        using P = Provider;
        row("tessary service: nothing listening", P::TessaryService, none, {},
            u"Tessary can't reach the rewrite service at %1. Start it with the command below, or pick a "
            "language model in Settings."_s,
            u"closed"_s);
        row("local model: nothing listening", P::LocalModel, none, u"llama3.1"_s,
            u"Tessary can't reach the model server at %1. Start it again (for Ollama, with the command "
            "below), or pick another model in Settings."_s,
            u"closed"_s);
        row("no model chosen", P::LocalModel, eventStream({ "x" }), {},
            u"No language model is chosen yet. Pick one in Settings."_s);
        row("model unknown to the server", P::LocalModel,
            jsonReply(404, "{\"error\":{\"message\":\"model 'llama9' not found, try pulling it first\"}}"),
            u"llama9"_s,
            u"The model server at %1 has no model named “llama9”. Pick one of its models in Settings."_s);
        row("wrong key", P::ModelService,
            jsonReply(401,
                R"({"error":{"message":"Incorrect API key provided: sk-ab***yz.","type":"invalid_request_error","code":"invalid_api_key"}})"),
            u"gpt-4o-mini"_s, u"%1 refused the API key. Enter the right key in Settings."_s);
        const QString turnedAway
            = u"%1 is turning requests away for now: the rate limit or the quota of the "
              "account is reached. Wait a moment and retry, or check the plan with the provider."_s;
        row("quota spent", P::ModelService,
            jsonReply(429,
                R"({"error":{"message":"You exceeded your current quota.","type":"insufficient_quota"}})"),
            u"gpt-4o-mini"_s, turnedAway);
        row("tessary service: rate limited, no body", P::TessaryService, jsonReply(429, {}, "text/plain"), {},
            turnedAway);
        row("tessary service: its own key message stays", P::TessaryService,
            jsonReply(401, R"({"error":{"type":"invalid_request_error","message":"Invalid API key"}})"), {},
            u"Invalid API key. Please check your token in Settings."_s);
        row("tessary service: its streamed words stay", P::TessaryService,
            jsonReply(200, "data: {\"error\":{\"message\":\"The model server is not running\"}}\n\n",
                "text/event-stream"),
            {}, u"The model server is not running"_s);
        row("timeout", P::LocalModel, stall, u"llama3.1"_s,
            u"%1 stopped answering before the rewrite was done. Retry; a model that is "
            "still loading may need a moment."_s);
        row("tessary service: timeout", P::TessaryService, stall, {}, u"The request timed out."_s);
        row("tls to a plain server", P::ModelService, eventStream({ "x" }), u"gpt-4o-mini"_s,
            u"Tessary couldn't open a secure connection to %1. Check the address in Settings (a server on "
            "this machine usually takes http://, not https://)."_s,
            u"tls"_s);
    }

    void failureMessages()
    {
        QFETCH(int, provider);
        QFETCH(QString, server);
        QFETCH(FixtureReply, answer);
        QFETCH(QString, model);
        QFETCH(QString, message);

        FixtureServer fixture;
        QVERIFY(fixture.listen());
        quint16 port = fixture.port();
        // A plain HTTP server meeting a TLS greeting answers with an error in plain text.
        QTcpServer plain;
        if (server == "tls"_L1) {
            QVERIFY(plain.listen(QHostAddress::LocalHost));
            port = plain.serverPort();
            connect(&plain, &QTcpServer::newConnection, &plain, [&plain] {
                QTcpSocket *socket = plain.nextPendingConnection();
                socket->write("HTTP/1.1 400 Bad Request\r\nConnection: close\r\n\r\n");
                socket->disconnectFromHost();
            });
        } else if (server == "closed"_L1) {
            port = closedPort();
        }
        fixture.route("/v1/chat/completions", answer);
        fixture.route("/api/v1/chat/completions", answer);

        const QString scheme = server == "tls"_L1 ? u"https"_s : u"http"_s;
        StorageManager storage(m_files.newPath(), u"%1://127.0.0.1:%2/api/v1"_s.arg(scheme).arg(port));
        if (Provider(provider) != Provider::TessaryService)
            chooseModel(storage, Provider(provider), u"%1://127.0.0.1:%2/v1"_s.arg(scheme).arg(port), model);

        HumanizeService service(storage, 300ms);
        RewriteRecorder recorder;
        const auto request = service.humanize(u"text"_s, u"natural"_s, recorder.callbacks());
        QTRY_VERIFY(!recorder.calls.isEmpty() && !recorder.calls.last().startsWith("token:"_L1));
        QCOMPARE(recorder.calls.last(), u"error:"_s + message.arg(u"127.0.0.1:%1"_s.arg(port)));
        // What fixes it travels with it; the popup offers Settings only for those.
        const Failure failure = recorder.failures.last();
        QCOMPARE(failure.fix == Failure::Fix::Settings, message.contains(u" in Settings"_s));
        QCOMPARE(failure.commands.isEmpty(), !message.contains(u"command"_s));
        QVERIFY(!failure.messageInSettings().contains(u" in Settings"_s)
            || failure.kind == Failure::Kind::Service);
    }
};

QTEST_GUILESS_MAIN(TestModelClient)
#include "TestModelClient.moc"
