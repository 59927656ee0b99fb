// Faults: local models missed or stored wrong, a connection test that rewrites or misreports, stale results.
#include "ClosedPort.h"
#include "FixtureServer.h"
#include "ModelChooser.h"
#include "Replies.h"
#include "ScratchFiles.h"
#include "StorageManager.h"

#include <QRegularExpression>
#include <QSignalSpy>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

using Provider = StorageManager::Provider;
using Result = ModelChooser::Result;

} // namespace

class TestModelChooser : public QObject
{
    Q_OBJECT

private:
    ScratchFiles m_files;
    QString m_lastPath;

    std::unique_ptr<StorageManager> newStorage(const QString &apiBase)
    {
        m_lastPath = m_files.newPath();
        return std::make_unique<StorageManager>(m_lastPath, apiBase);
    }

private Q_SLOTS:
    // The models of every server found are offered; picking one makes it the language model.
    void localChoices()
    {
        FixtureServer ollama;
        FixtureServer llama;
        QVERIFY(ollama.listen());
        QVERIFY(llama.listen());
        ollama.route(
            "/api/tags", jsonReply(200, R"({"models":[{"name":"llama3.1:latest"},{"name":"qwen2.5:7b"}]})"));
        llama.route("/v1/models", jsonReply(200, R"({"object":"list","data":[{"id":"phi-3.gguf"}]})"));

        auto storage = newStorage(u"http://127.0.0.1:%1/api/v1"_s.arg(closedPort()));
        ModelChooser chooser(*storage,
            { { ollama.port(), u"Ollama"_s }, { closedPort(), u"LM Studio"_s },
                { llama.port(), u"llama.cpp"_s } });
        QSignalSpy changed(&chooser, &ModelChooser::localChoicesChanged);
        chooser.searchLocal();
        QVERIFY(chooser.searching());
        QTRY_VERIFY(!chooser.searching());
        QCOMPARE(chooser.localChoices(),
            (QStringList { u"llama3.1:latest — Ollama (127.0.0.1:%1)"_s.arg(ollama.port()),
                u"qwen2.5:7b — Ollama (127.0.0.1:%1)"_s.arg(ollama.port()),
                u"phi-3.gguf — llama.cpp (127.0.0.1:%1)"_s.arg(llama.port()) }));
        QVERIFY(!changed.isEmpty()); // the settings window lists them when told
        QCOMPARE(chooser.chosenLocal(), -1);
        QVERIFY(!storage->serviceUsable());

        chooser.chooseLocal(1);
        QCOMPARE(storage->provider(), Provider::LocalModel);
        QCOMPARE(storage->modelBase(), ollama.url("/v1").toString());
        QCOMPARE(storage->model(), u"qwen2.5:7b"_s);
        QCOMPARE(chooser.chosenLocal(), 1);
        QVERIFY(storage->serviceUsable());

        // The choice survives a restart of the program.
        storage.reset();
        StorageManager reread(m_lastPath, u"http://127.0.0.1:1/api/v1"_s);
        QCOMPARE(reread.provider(), Provider::LocalModel);
        QCOMPARE(reread.model(), u"qwen2.5:7b"_s);
    }

    // "Test connection" asks for the model list, never for a rewrite, and says what it found.
    void testConnection_data()
    {
        QTest::addColumn<int>("provider");
        QTest::addColumn<QString>("model");
        QTest::addColumn<QByteArray>(
            "modelsPath"); // where the server lists its models; empty: nothing listens
        QTest::addColumn<FixtureReply>("models");
        QTest::addColumn<Result>("kind");
        QTest::addColumn<QString>("result"); // a pattern; %1 is host:port

        const FixtureReply list
            = jsonReply(200, R"({"object":"list","data":[{"id":"llama3.1"},{"id":"phi3"}]})");
        const auto row = [&list](const char *name, Provider provider, const QString &model, Result kind,
                             const QString &result, const QByteArray &modelsPath = "/v1/models",
                             const std::optional<FixtureReply> &models = {}) {
            QTest::newRow(name) << int(provider) << model << modelsPath << models.value_or(list) << kind
                                << result;
        };
        row("local server, its model", Provider::LocalModel, u"phi3"_s, Result::Succeeded,
            u"^Connected to %1 — model phi3 \\(\\d+ ms\\)\\.$"_s);
        row("ollama, found by its own list", Provider::LocalModel, u"llama3.1:latest"_s, Result::Succeeded,
            u"^Connected to Ollama at %1 — model llama3\\.1:latest \\(\\d+ ms\\)\\.$"_s, "/api/tags",
            jsonReply(200, R"({"models":[{"name":"llama3.1:latest"}]})"));
        row("model the server does not have", Provider::LocalModel, u"mistral"_s, Result::Failed,
            u"^The model server at %1 has no model named “mistral”\\. Pick one of its models\\.$"_s);
        row("service refuses the key", Provider::ModelService, u"gpt-4o"_s, Result::Failed,
            u"^%1 refused the API key\\. Enter the right key\\.$"_s, "/v1/models",
            jsonReply(401, R"({"error":{"message":"Incorrect API key provided"}})"));
        row("service rate limit", Provider::ModelService, u"gpt-4o"_s, Result::Failed,
            u"^%1 is turning requests away for now: .*"_s, "/v1/models", jsonReply(429, "{}"));
        row("nothing listening, tessary service", Provider::TessaryService, {}, Result::Failed,
            u"^Tessary can't reach the rewrite service at %1\\. Start it with the command below, or pick a "
            "language model\\.$"_s,
            {});
        row("tessary service without a model list", Provider::TessaryService, {}, Result::Succeeded,
            u"^The Tessary service at %1 answers \\(\\d+ ms\\)\\. It checks the key with the first rewrite\\.$"_s,
            "/elsewhere");
        row("tessary service listing its model", Provider::TessaryService, {}, Result::Succeeded,
            u"^Connected to the Tessary service at %1 — model llama3\\.1 \\(\\d+ ms\\)\\.$"_s,
            "/api/v1/models");
        row("no model chosen", Provider::LocalModel, {}, Result::Failed,
            u"^No language model is chosen yet\\. Pick one\\.$"_s);
    }

    void testConnection()
    {
        QFETCH(int, provider);
        QFETCH(QString, model);
        QFETCH(QByteArray, modelsPath);
        QFETCH(FixtureReply, models);
        QFETCH(Result, kind);
        QFETCH(QString, result);

        FixtureServer server;
        QVERIFY(server.listen());
        const quint16 port = modelsPath.isEmpty() ? closedPort() : server.port();
        if (!modelsPath.isEmpty())
            server.route(modelsPath, models);
        auto storage = newStorage(u"http://127.0.0.1:%1/api/v1"_s.arg(port));
        storage->setApiKey(u"tessary-key"_s);
        if (Provider(provider) != Provider::TessaryService) {
            storage->setModelBase(u"http://127.0.0.1:%1/v1"_s.arg(port));
            storage->setModel(model);
            storage->setModelKey(u"sk-1"_s);
            storage->setProvider(Provider(provider));
        }

        ModelChooser chooser(*storage, {});
        chooser.testConnection();
        QTRY_VERIFY(chooser.resultKind() != Result::Working);
        QCOMPARE(chooser.resultKind(), kind);
        const QRegularExpression pattern(result.replace(u"%1"_s, u"127.0.0.1:%1"_s.arg(port)));
        QVERIFY2(pattern.match(chooser.result()).hasMatch(), qPrintable(chooser.result()));
        // Shown inside Settings: it never sends the user there, and commands stay out of the sentence.
        QVERIFY2(!chooser.result().contains(u"Settings"_s) && !chooser.result().contains(u'`'),
            qPrintable(chooser.result()));
        QCOMPARE(chooser.resultCommands(),
            result.contains(u"command below"_s) ? QStringList { u"tessary-server"_s } : QStringList());
        for (const FixtureRequest &request : server.requests()) {
            QCOMPARE(request.method, QByteArray("GET")); // no rewrite, no tokens spent
            QCOMPARE(request.header("authorization"),
                Provider(provider) == Provider::TessaryService ? QByteArray("Bearer tessary-key")
                                                               : QByteArray("Bearer sk-1"));
        }
    }

    // A result is about the fields as they were: it goes when one changes, and a late
    // answer to an earlier test does not bring it back.
    void resultClearedWhenAFieldChanges()
    {
        FixtureServer server;
        QVERIFY(server.listen());
        // The first answer is slow and a refusal; later ones list the models at once.
        int asked = 0;
        server.route("/v1/models", [&asked](const FixtureRequest &) {
            if (asked++ > 0)
                return jsonReply(200, R"({"data":[{"id":"gpt-4o"}]})");
            FixtureReply slow = jsonReply(401, R"({"error":{"message":"bad key"}})");
            slow.headerDelay = std::chrono::milliseconds(300);
            return slow;
        });
        auto storage = newStorage(u"http://127.0.0.1:1/api/v1"_s);
        storage->setModelBase(server.url("/v1").toString());
        storage->setModel(u"gpt-4o"_s);
        storage->setProvider(Provider::ModelService);
        ModelChooser chooser(*storage, {});

        chooser.testConnection();
        QCOMPARE(chooser.resultKind(), Result::Working);
        storage->setModelKey(u"sk-new"_s); // while the refusal is on its way
        QCOMPARE(chooser.resultKind(), Result::None);
        QCOMPARE(chooser.result(), QString());

        QList<Result> seen;
        connect(&chooser, &ModelChooser::resultChanged, this, [&] { seen.append(chooser.resultKind()); });
        QSignalSpy written(&server, &FixtureServer::pieceWritten);
        chooser.testConnection();
        QTRY_COMPARE(chooser.resultKind(), Result::Succeeded);
        // The late refusal, once written, must not replace the newer result.
        QTRY_COMPARE(written.size(), 2);
        QSignalSpy changed(&chooser, &ModelChooser::resultChanged);
        QVERIFY(!changed.wait(500));
        QCOMPARE(seen, (QList<Result> { Result::Working, Result::Succeeded }));

        storage->setModel(u"gpt-4o"_s);
        QCOMPARE(chooser.resultKind(), Result::None);
    }

    // The models of a service are listed with its key; the first one is taken when none was chosen.
    void serviceModels()
    {
        FixtureServer server;
        QVERIFY(server.listen());
        server.route("/v1/models",
            jsonReply(200, R"({"object":"list","data":[{"id":"gpt-4o-mini"},{"id":"gpt-4o"}]})"));
        auto storage = newStorage(u"http://127.0.0.1:1/api/v1"_s);
        storage->setProvider(Provider::ModelService);
        storage->setModelBase(server.url("/v1/").toString());
        storage->setModelKey(u"sk-9"_s);
        ModelChooser chooser(*storage, {});
        chooser.listServiceModels();
        QTRY_VERIFY(!chooser.listing());
        QCOMPARE(chooser.serviceModels(), (QStringList { u"gpt-4o-mini"_s, u"gpt-4o"_s }));
        QCOMPARE(storage->model(), u"gpt-4o-mini"_s);
        QCOMPARE(chooser.resultKind(), Result::Succeeded);
        QCOMPARE(server.requests().first().header("authorization"), QByteArray("Bearer sk-9"));
        QVERIFY(storage->serviceUsable());
    }
};

QTEST_GUILESS_MAIN(TestModelChooser)
#include "TestModelChooser.moc"
