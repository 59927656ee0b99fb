// Faults: a model server's list misread, a server missed or wrongly offered, the port list misparsed.
#include "ClosedPort.h"
#include "FixtureServer.h"
#include "ModelProbe.h"
#include "Replies.h"

#include <QNetworkAccessManager>
#include <QSignalSpy>
#include <QTest>

#include <memory>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

Q_DECLARE_METATYPE(ModelList::Outcome)

namespace {

const QByteArray openAiList = R"({"object":"list","data":[{"id":"qwen2.5:7b"},{"id":"llama3.1:8b"}]})";
const QByteArray ollamaTags = R"({"models":[{"name":"llama3.1:latest","model":"llama3.1:latest"}]})";

// A server that answers like llama.cpp's, or like a web page, or like Ollama.
std::unique_ptr<FixtureServer> modelServer(const QString &kind)
{
    auto server = std::make_unique<FixtureServer>();
    if (!server->listen())
        return nullptr;
    if (kind == "openai"_L1) {
        server->route("/v1/models", jsonReply(200, openAiList));
    } else if (kind == "ollama"_L1) {
        server->route("/api/tags", jsonReply(200, ollamaTags));
    } else if (kind == "web page"_L1) {
        const FixtureReply page = jsonReply(200, "<html><body>It works!</body></html>", "text/html");
        server->route("/v1/models", page);
        server->route("/api/tags", page);
    }
    return server;
}

} // namespace

class TestModelProbe : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // What one server's answer to "which models?" comes to.
    void listModels_data()
    {
        QTest::addColumn<QString>("base"); // empty: the fixture server's
        QTest::addColumn<FixtureReply>("modelsReply"); // GET /v1/models
        QTest::addColumn<FixtureReply>("tagsReply"); // GET /api/tags; status 0: not routed (404)
        QTest::addColumn<ModelList::Outcome>("outcome");
        QTest::addColumn<QStringList>("models");

        const FixtureReply none = jsonReply(0, {});
        FixtureReply stall = jsonReply(200, openAiList);
        stall.end = FixtureReply::End::Stall;
        stall.stopAt = 5;

        const auto row = [&](const char *name, const FixtureReply &models, ModelList::Outcome outcome,
                             const QStringList &listed = {}, const FixtureReply &tags = jsonReply(0, {}),
                             const QString &base = {}) {
            QTest::newRow(name) << base << models << tags << outcome << listed;
        };
        using O = ModelList::Outcome;
        row("openai list", jsonReply(200, openAiList), O::Listed, { u"qwen2.5:7b"_s, u"llama3.1:8b"_s });
        row("server with no model yet", jsonReply(200, R"({"object":"list","data":null})"), O::Listed);
        row("models and data both sent, duplicates once",
            jsonReply(200,
                R"({"models":[{"name":"a.gguf"}],"object":"list","data":[{"id":"a.gguf"},{"id":"a.gguf"}]})"),
            O::Listed, { u"a.gguf"_s });
        const FixtureReply page = jsonReply(200, "<html>hello</html>");
        row("a web server, not a model server", page, O::NotFound, {}, page);
        row("json, but no list", jsonReply(200, R"({"status":"ok"})"), O::NotFound);
        row("forbidden", jsonReply(403, "{}"), O::Unauthorized);
        row("server error", jsonReply(500, "{}"), O::HttpError);
        row("nothing comes in time", stall, O::TimedOut);
        // Nothing asked of the fixture server.
        row("no host", none, O::InvalidUrl, {}, none, u"http:///v1"_s);
        row("not http", none, O::InvalidUrl, {}, none, u"ftp://127.0.0.1/v1"_s);
    }

    void listModels()
    {
        QFETCH(QString, base);
        QFETCH(FixtureReply, modelsReply);
        QFETCH(FixtureReply, tagsReply);
        QFETCH(ModelList::Outcome, outcome);
        QFETCH(QStringList, models);

        FixtureServer server;
        QVERIFY(server.listen());
        server.route("/v1/models", modelsReply);
        if (tagsReply.status != 0)
            server.route("/api/tags", tagsReply);

        const QUrl url = base.isEmpty() ? server.url("/v1") : QUrl(base);
        QNetworkAccessManager network;
        std::optional<ModelList> answer;
        ::listModels(
            network, url, u"k-123"_s, 400ms, this, [&answer](const ModelList &list) { answer = list; });
        QTRY_VERIFY(answer.has_value());
        QCOMPARE(answer->outcome, outcome);
        QCOMPARE(answer->models, models);
        QCOMPARE(answer->serverName, QString()); // only Ollama's own list names its server
        if (base.isEmpty()) {
            QCOMPARE(answer->base, url);
            QCOMPARE(server.requests().first().path, QByteArray("/v1/models"));
            QCOMPARE(server.requests().first().header("authorization"), QByteArray("Bearer k-123"));
        }
    }

    // Which local servers the search offers, in the order of the candidate ports.
    void probe_data()
    {
        QTest::addColumn<QStringList>("servers"); // what listens on each candidate port
        QTest::addColumn<QStringList>("offered"); // "name: models" of what the search found

        QTest::newRow("something that is not a model server")
            << QStringList { u"web page"_s, u"closed"_s } << QStringList();
        QTest::newRow("two servers, in port order")
            << QStringList { u"ollama"_s, u"web page"_s, u"openai"_s }
            << QStringList { u"Ollama: llama3.1:latest"_s, u"Second: qwen2.5:7b,llama3.1:8b"_s };
    }

    void probe()
    {
        QFETCH(QStringList, servers);

        std::vector<std::unique_ptr<FixtureServer>> running;
        QList<ModelProbe::Candidate> candidates;
        const QStringList names { u"First"_s, u"Middle"_s, u"Second"_s };
        for (qsizetype i = 0; i < servers.size(); ++i) {
            if (servers.at(i) == "closed"_L1) {
                candidates.append({ closedPort(), names.at(i) });
                continue;
            }
            running.push_back(modelServer(servers.at(i)));
            QVERIFY(running.back());
            candidates.append({ running.back()->port(), names.at(i) });
        }

        ModelProbe probe(candidates, 2s);
        QSignalSpy finished(&probe, &ModelProbe::finished);
        probe.start();
        QVERIFY(probe.isRunning());
        QVERIFY(finished.wait(5000));
        QVERIFY(!probe.isRunning());
        QStringList seen;
        for (const ModelList &server : probe.found())
            seen.append(server.serverName + u": "_s + server.models.join(u','));
        QTEST(seen, "offered");
    }

    void candidatePorts_data()
    {
        QTest::addColumn<QString>("ports");
        QTest::addColumn<QList<quint16>>("probed");
        const QList<quint16> known { 11434, 8080, 1234, 8000 };
        QTest::newRow("unset: the known servers") << QString() << known;
        QTest::newRow("a list of the user's") << u"9000, 11434"_s << QList<quint16> { 9000, 11434 };
        QTest::newRow("garbage: the known servers") << u"9000,http"_s << known;
        QTest::newRow("out of range: the known servers") << u"70000"_s << known;
    }

    void candidatePorts()
    {
        QFETCH(QString, ports);
        QList<quint16> seen;
        for (const ModelProbe::Candidate &candidate : ModelProbe::candidatesFrom(ports))
            seen.append(candidate.port);
        QTEST(seen, "probed");
    }
};

QTEST_GUILESS_MAIN(TestModelProbe)
#include "TestModelProbe.moc"
