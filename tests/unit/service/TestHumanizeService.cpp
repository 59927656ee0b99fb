// Faults: a malformed request or log line, a cancelled rewrite still reporting, leaks.
#include "FixtureServer.h"
#include "HumanizeService.h"
#include "Log.h"
#include "Replies.h"
#include "RewriteRecorder.h"
#include "ScratchFiles.h"
#include "StdoutCapture.h"
#include "StorageManager.h"
#include "StreamDelegate.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSignalSpy>
#include <QTest>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

const QByteArray completions = "/api/v1/chat/completions";

} // namespace

class TestHumanizeService : public QObject
{
    Q_OBJECT

private:
    ScratchFiles m_files;
    FixtureServer m_server;

    std::unique_ptr<StorageManager> newStorage(const QString &apiBase = {})
    {
        auto storage
            = std::make_unique<StorageManager>(m_files.newPath(), m_server.url("/api/v1").toString());
        if (!apiBase.isNull())
            storage->setApiBase(apiBase);
        return storage;
    }

private Q_SLOTS:
    void initTestCase() { QVERIFY(m_server.listen()); }

    void init()
    {
        m_server.clearRequests();
        m_server.route(completions, eventStream({ "ok" }));
    }

    void requestOnTheWire_data()
    {
        QTest::addColumn<QString>("basePath");
        QTest::addColumn<QString>("apiKey");
        QTest::addColumn<QStringList>("examples");
        QTest::addColumn<QString>("tone");
        QTest::addColumn<QString>("text");
        QTest::addColumn<int>("shownLength");
        QTest::addColumn<QString>("keyLine"); // empty: no key line and no Authorization header

        QTest::newRow("key and samples")
            << u"/api/v1"_s << u"sk-1234567890abcdef"_s << QStringList { u"First sample."_s, u"Second."_s }
            << u"casual"_s << u"Hello there"_s << 11 << u"🔑 [HumanizeService] Using API key: sk-12345..."_s;
        QTest::newRow("no key, no samples")
            << u"/api/v1"_s << QString() << QStringList {} << u"natural"_s << u"Hi"_s << 2 << QString();
        QTest::newRow("short key is shown whole")
            << u"/api/v1"_s << u"abc"_s << QStringList { u"s"_s } << u"warm"_s << u"x"_s << 1
            << u"🔑 [HumanizeService] Using API key: abc..."_s;
        QTest::newRow("text and tone pass unchanged")
            << u"/api/v1"_s << QString() << QStringList { u"line\n\"quoted\" \\ back"_s } << u""_s
            << u"  \"Quote\" \\ and\nnew line\r\ne\u0301 👍🏽 "_s << 29 << QString();
        QTest::newRow("base ending in a slash")
            << u"/api/v1/"_s << QString() << QStringList {} << u"Punchy!?"_s << u"t"_s << 1 << QString();
    }

    void requestOnTheWire()
    {
        QFETCH(QString, basePath);
        QFETCH(QString, apiKey);
        QFETCH(QStringList, examples);
        QFETCH(QString, tone);
        QFETCH(QString, text);
        QFETCH(int, shownLength);
        QFETCH(QString, keyLine);

        m_server.route(basePath.toUtf8() + "/chat/completions", eventStream({ "ok" }));
        auto storage = newStorage(m_server.url(basePath.toUtf8()).toString());
        storage->setApiKey(apiKey);
        storage->setExamples(examples);
        HumanizeService service(*storage);
        RewriteRecorder recorder;

        StdoutCapture capture;
        service.humanize(text, tone, recorder.callbacks());
        QTRY_COMPARE(recorder.calls, (QStringList { u"token:ok"_s, u"complete"_s }));
        QTRY_VERIFY(service.findChildren<QObject *>().isEmpty()); // the request's thread and objects go
        const QStringList lines = capture.lines().filter(u"[HumanizeService]"_s);

        const QString url = m_server.url(basePath.toUtf8()).toString() + u"/chat/completions"_s;
        QStringList expectedLines { u"🚀 [HumanizeService] Starting humanize request..."_s,
            u"📝 [HumanizeService] Text length: %1, Tone: %2"_s.arg(shownLength).arg(tone) };
        if (!keyLine.isEmpty())
            expectedLines.append(keyLine);
        expectedLines.append(u"📤 [HumanizeService] Request prepared, sending to: "_s + url);
        QCOMPARE(lines, expectedLines);

        QCOMPARE(m_server.requests().size(), 1);
        const FixtureRequest request = m_server.requests().first();
        QCOMPARE(request.method, "POST");
        QCOMPARE(request.path, basePath.toUtf8() + "/chat/completions");
        QCOMPARE(request.header("Content-Type"), "application/json");
        QCOMPARE(request.header("Authorization"),
            apiKey.isEmpty() ? QByteArray() : QByteArray("Bearer " + apiKey.toUtf8()));

        QCOMPARE(request.body.contains('\n'), false); // compact
        const QJsonObject message { { u"role"_s, u"user"_s },
            { u"content"_s, u"Rewrite this in my voice:\n\n"_s + text } };
        QCOMPARE(QJsonDocument::fromJson(request.body).object(),
            (QJsonObject { { u"examples"_s, QJsonArray::fromStringList(examples) },
                { u"messages"_s, QJsonArray { message } }, { u"stream"_s, true }, { u"tone"_s, tone } }));
    }

    // The key's start is the user's secret: its length only, unless exact lines were asked for.
    void keyLine_data()
    {
        QTest::addColumn<Log::Detail>("detail");
        QTest::addColumn<QString>("apiKey");
        QTest::addColumn<QString>("shown");

        const QString key = u"sk-1234567890abcdef"_s;
        QTest::newRow("exact lines: its first 8") << Log::Detail::Full << key << u"sk-12345"_s;
        QTest::newRow("private: their length") << Log::Detail::Private << key << u"[8 characters]"_s;
        QTest::newRow("private, a short key") << Log::Detail::Private << u"abc"_s << u"[3 characters]"_s;
    }

    void keyLine()
    {
        QFETCH(Log::Detail, detail);
        QFETCH(QString, apiKey);
        QFETCH(QString, shown);

        auto storage = newStorage();
        storage->setApiKey(apiKey);
        HumanizeService service(*storage);
        RewriteRecorder recorder;
        StdoutCapture capture;
        Log::setDetail(detail);
        service.humanize(u"Hello"_s, u"casual"_s, recorder.callbacks());
        Log::setDetail(Log::Detail::Full);
        QTRY_COMPARE(recorder.calls, (QStringList { u"token:ok"_s, u"complete"_s }));
        QCOMPARE(capture.lines().filter(u"🔑"_s),
            QStringList { u"🔑 [HumanizeService] Using API key: "_s + shown + u"..."_s });
    }

    // The user's own instruction travels with the request; without one, the request is byte for
    // byte what a Tessary service has always read.
    void instructionInTheRequest_data()
    {
        QTest::addColumn<bool>("modelServer");
        QTest::addColumn<QString>("instruction");
        QTest::addColumn<QByteArray>("body"); // the whole body, for the Tessary service

        const QByteArray messages = "\"messages\":[{\"content\":\"Rewrite this in my voice:\\n\\nHi\","
                                    "\"role\":\"user\"}],\"stream\":true,\"tone\":\"warm\"}";
        QTest::newRow("tessary service, none")
            << false << QString() << "{\"examples\":[\"Cheers\"]," + messages;
        QTest::newRow("tessary service, given")
            << false << u"shorter, \"please\""_s
            << "{\"examples\":[\"Cheers\"],\"instruction\":\"shorter, \\\"please\\\"\"," + messages;
        QTest::newRow("model server, none") << true << QString() << QByteArray();
        QTest::newRow("model server, given") << true << u"shorter, \"please\""_s << QByteArray();
    }

    void instructionInTheRequest()
    {
        QFETCH(bool, modelServer);
        QFETCH(QString, instruction);
        QFETCH(QByteArray, body);

        auto storage = newStorage();
        storage->setExamples({ u"Cheers"_s });
        if (modelServer) {
            m_server.route("/v1/chat/completions", eventStream({ "ok" }));
            storage->setModelBase(m_server.url("/v1").toString());
            storage->setModel(u"m"_s);
            storage->setProvider(StorageManager::Provider::LocalModel);
        }
        HumanizeService service(*storage);
        RewriteRecorder recorder;
        StdoutCapture capture;
        service.humanize(u"Hi"_s, u"warm"_s, instruction, recorder.callbacks());
        QTRY_COMPARE(recorder.calls, (QStringList { u"token:ok"_s, u"complete"_s }));
        capture.restore();
        QCOMPARE(m_server.requests().size(), 1);
        const QByteArray sent = m_server.requests().first().body;
        if (!modelServer) {
            QCOMPARE(sent, body);
            return;
        }
        const QJsonArray messages = QJsonDocument::fromJson(sent).object().value("messages"_L1).toArray();
        const QString system = messages.at(0)["content"_L1].toString();
        QCOMPARE(
            system.contains(u"<instruction>shorter, \"please\"</instruction>"_s), !instruction.isEmpty());
        QCOMPARE(system.contains(u"The author asks"_s), !instruction.isEmpty());
        QCOMPARE(messages.at(1)["content"_L1].toString(), u"Hi"_s); // the text alone, whatever was asked
    }

    // Nothing is sent; the error arrives before humanize() returns.
    void invalidBaseUrl_data()
    {
        QTest::addColumn<QString>("apiBase");
        QTest::newRow("empty") << u""_s;
        QTest::newRow("space in the host") << u"http://exa mple.com/api"_s;
        QTest::newRow("no scheme") << u"127.0.0.1:8787/api/v1"_s;
    }

    void invalidBaseUrl()
    {
        QFETCH(QString, apiBase);
        auto storage = newStorage(apiBase);
        HumanizeService service(*storage);
        RewriteRecorder recorder;
        StdoutCapture capture;
        service.humanize(u"text"_s, u"natural"_s, recorder.callbacks());
        const QStringList lines = capture.lines();
        QCOMPARE(recorder.calls, QStringList { u"error:Invalid API URL"_s });
        QCOMPARE(lines.last(), u"❌ [HumanizeService] Invalid API URL: "_s + apiBase + u"/chat/completions"_s);
        QCoreApplication::sendPostedEvents(); // anything queued would arrive now
        QCOMPARE(recorder.calls.size(), 1);
        QCOMPARE(m_server.requests().size(), 0);
    }

    // One rewrite at a time: the popup's new request ends the one still running, and its
    // owner hears so; a request cancelled by its owner ends alone; quitting mid-rewrite stops
    // the transfer with the service, and it reports nothing more.
    void secondRequestCancelsTheFirst_data()
    {
        QTest::addColumn<QString>("cancel"); // which request its owner cancels, or "service" to quit
        QTest::addColumn<QStringList>("first");
        QTest::addColumn<QStringList>("second");

        const QStringList cancelled { u"token:a"_s, u"cancelled"_s };
        QTest::newRow("the second runs to its end")
            << QString() << cancelled << QStringList { u"token:c"_s, u"token:!"_s, u"complete"_s };
        QTest::newRow("the second's owner cancels it")
            << u"second"_s << cancelled << QStringList { u"token:c"_s, u"cancelled"_s };
        QTest::newRow("quitting mid-rewrite") << u"service"_s << cancelled << QStringList { u"token:c"_s };
    }
    void secondRequestCancelsTheFirst()
    {
        QFETCH(QString, cancel);

        // Each reply sends one fragment at once and the rest a while later, long after
        // the other request has started and a cancellation has been made.
        m_server.route(completions, [](const FixtureRequest &request) {
            const bool first = QJsonDocument::fromJson(request.body)["tone"_L1].toString() == "natural"_L1;
            const QByteArray fragment = first ? "a" : "c";
            FixtureReply reply = eventStream({ fragment, "!" });
            reply.splitAt = { reply.body.indexOf("data:", 1) };
            reply.delay = 1500ms;
            return reply;
        });
        auto storage = newStorage();
        auto service = std::make_unique<HumanizeService>(*storage);
        RewriteRecorder first;
        RewriteRecorder second;

        StdoutCapture capture;
        const auto firstRequest = service->humanize(u"text"_s, u"natural"_s, first.callbacks());
        QTRY_COMPARE(first.calls, QStringList { u"token:a"_s });
        auto secondRequest = service->humanize(u"text"_s, u"casual"_s, second.callbacks());
        QTRY_COMPARE(second.calls, QStringList { u"token:c"_s });
        if (cancel == u"second")
            secondRequest->cancel();
        if (cancel == u"service") {
            service.reset();
            QCoreApplication::sendPostedEvents(); // anything queued would arrive now
        } else {
            QTRY_VERIFY_WITH_TIMEOUT(service->findChildren<StreamDelegate *>().isEmpty(), 10000);
        }

        QTEST(first.calls, "first");
        QTEST(second.calls, "second");
    }
};

QTEST_GUILESS_MAIN(TestHumanizeService)
#include "TestHumanizeService.moc"
