// Faults: a server without an upstream that does not look on this machine, takes a
// server without models, or asks the found server for another model than it listed.
#include "ClosedPort.h"
#include "FixtureServer.h"

#include <QFile>
#include <QJsonDocument>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

FixtureReply json(const QByteArray &body)
{
    FixtureReply reply;
    reply.headers = { { "Content-Type", "application/json" } };
    reply.body = body;
    return reply;
}

} // namespace

// tessary-server started with no upstream_url, as `make run` starts it on a new machine.
class TestServerFindsModel : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void upstreamFromThisMachine_data()
    {
        QTest::addColumn<QByteArray>("models"); // what the local server lists; empty: nothing listens
        QTest::addColumn<QString>("logged"); // %1: the local server's port
        QTest::addColumn<QString>("model"); // asked of the local server by a rewrite; empty: no rewrite

        QTest::newRow("a model server with models")
            << QByteArray(R"({"object":"list","data":[{"id":"found-7b"},{"id":"other-3b"}]})")
            << u"upstream found on this machine: a model server at http://127.0.0.1:%1/v1, model found-7b"_s
            << u"found-7b"_s;
        QTest::newRow("a model server without a model")
            << QByteArray(R"({"object":"list","data":[]})")
            << u"no upstream_url set and no model server with a model found on this machine"_s << QString();
        QTest::newRow("nothing listening") << QByteArray()
                                           << u"no upstream_url set and no model server with a model found "
                                              "on this machine"_s
                                           << QString();
    }

    void upstreamFromThisMachine()
    {
        QFETCH(QByteArray, models);
        QFETCH(QString, logged);
        QFETCH(QString, model);

        FixtureServer local;
        QVERIFY(local.listen());
        const quint16 port = models.isEmpty() ? closedPort() : local.port();
        local.route("/v1/models", json(models));
        FixtureReply stream;
        stream.headers = { { "Content-Type", "text/event-stream" } };
        stream.body = "data: {\"choices\":[{\"delta\":{\"content\":\"Hey\"}}]}\n\ndata: [DONE]\n\n";
        local.route("/v1/chat/completions", stream);

        QTemporaryDir home;
        QProcess server;
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(u"XDG_CONFIG_HOME"_s, home.path());
        environment.insert(u"TESSARY_LOCAL_MODEL_PORTS"_s, QString::number(port));
        environment.remove(u"TESSARY_SERVER_UPSTREAM_URL"_s);
        server.setProcessEnvironment(environment);
        server.start(QString::fromLatin1(TESSARY_SERVER_PATH), { u"--port=0"_s });
        auto stop = qScopeGuard([&server] {
            server.terminate();
            if (!server.waitForFinished(5000))
                server.kill();
        });

        QByteArray log;
        const QRegularExpression listening(u"listening on http://127\\.0\\.0\\.1:(\\d+)/api/v1"_s);
        int serverPort = 0;
        QTRY_VERIFY_WITH_TIMEOUT((log += server.readAllStandardError(),
                                     serverPort = listening.match(QString::fromUtf8(log)).captured(1).toInt())
                > 0,
            10000);
        QVERIFY2(log.contains(logged.arg(port).toUtf8()), log.constData());
        if (model.isEmpty())
            return;

        QFile tokenFile(home.filePath(u"tessary-server/client-token"_s));
        QVERIFY(tokenFile.open(QIODevice::ReadOnly));
        const QByteArray token = tokenFile.readAll().trimmed();
        QNetworkAccessManager network;

        // The model it took, for a client's connection test: with the token only.
        for (const bool withToken : { false, true }) {
            QNetworkRequest ask(QUrl(u"http://127.0.0.1:%1/api/v1/models"_s.arg(serverPort)));
            if (withToken)
                ask.setRawHeader("Authorization", "Bearer " + token);
            QNetworkReply *listed = network.get(ask);
            QTRY_VERIFY_WITH_TIMEOUT(listed->isFinished(), 10000);
            QCOMPARE(
                listed->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt(), withToken ? 200 : 401);
            if (withToken)
                QCOMPARE(QJsonDocument::fromJson(listed->readAll())["data"_L1][0]["id"_L1].toString(), model);
        }

        QNetworkRequest request(QUrl(u"http://127.0.0.1:%1/api/v1/chat/completions"_s.arg(serverPort)));
        request.setHeader(QNetworkRequest::ContentTypeHeader, u"application/json"_s);
        request.setRawHeader("Authorization", "Bearer " + token);
        QNetworkReply *reply = network.post(request,
            R"({"stream":true,"examples":["Cheers"],"tone":"natural","messages":[{"role":"user","content":"Rewrite this in my voice:\n\nhi"}]})");
        QTRY_VERIFY_WITH_TIMEOUT(reply->isFinished(), 10000);
        QVERIFY(reply->readAll().contains(R"("content":"Hey")"));
        QList<FixtureRequest> asked;
        for (const FixtureRequest &seen : local.requests()) {
            if (seen.path == "/v1/chat/completions")
                asked.append(seen);
        }
        QCOMPARE(asked.size(), 1);
        QCOMPARE(QJsonDocument::fromJson(asked.first().body)["model"_L1].toString(), model);
    }
};

QTEST_GUILESS_MAIN(TestServerFindsModel)
#include "TestServerFindsModel.moc"
