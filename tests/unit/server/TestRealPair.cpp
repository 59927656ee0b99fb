// Faults: the program and tessary-server disagreeing on the request, its errors, or a cancel.

#include "HumanizeService.h"
#include "RewriteRecorder.h"
#include "RewriteServer.h"
#include "ScratchFiles.h"
#include "StorageManager.h"
#include "server/FixtureUpstream.h"

#include <QJsonArray>
#include <QTest>

using namespace Qt::StringLiterals;

class TestRealPair : public QObject
{
    Q_OBJECT

private:
    ScratchFiles m_files;
    FixtureUpstream m_upstream;
    std::unique_ptr<RewriteServer> m_server;
    std::unique_ptr<StorageManager> m_storage;

    void startPair(const QString &apiKey = u"pair-token"_s)
    {
        ServerConfig config;
        config.port = 0;
        config.clientToken = u"pair-token"_s;
        config.upstreamUrl = m_upstream.baseUrl();
        m_server = std::make_unique<RewriteServer>(config);
        QVERIFY(m_server->start());
        m_storage = std::make_unique<StorageManager>(
            m_files.newPath(), u"http://127.0.0.1:%1/api/v1"_s.arg(m_server->port()));
        m_storage->setApiKey(apiKey);
        m_storage->setExamples({ u"Morning all — quick update."_s, u"Thanks heaps, J."_s });
    }

private Q_SLOTS:
    void initTestCase() { QVERIFY(m_upstream.start()); }
    void cleanup()
    {
        m_storage.reset();
        m_server.reset();
    }

    void rewriteStreamsThroughBothHops()
    {
        m_upstream.setScript({ .fragments = { u"Morning"_s, u" — it's"_s, u" done ✓"_s } });
        startPair();
        HumanizeService service(*m_storage);

        RewriteRecorder outcome;
        const QString text = u"The task has been completed.\n\"Regards\""_s;
        service.humanize(text, u"warm"_s, outcome.callbacks());
        QTRY_COMPARE(outcome.calls,
            (QStringList { u"token:Morning"_s, u"token: — it's"_s, u"token: done ✓"_s, u"complete"_s }));
        const QJsonArray messages = m_upstream.requests().last().body.value("messages"_L1).toArray();
        const QString system = messages[0]["content"_L1].toString();
        QVERIFY(system.contains(u"Thanks heaps, J."_s));
        QVERIFY(system.contains(u"warm:"_s));
        QCOMPARE(messages[1]["content"_L1].toString(), text);
    }

    // The server's refusal of a token reaches the user as the program's own hint.
    void aWrongTokenReachesTheUserAsAMessage()
    {
        m_upstream.setScript({ .fragments = { u"never shown"_s } });
        startPair(u"stale"_s);
        HumanizeService service(*m_storage);

        RewriteRecorder outcome;
        service.humanize(u"text"_s, u"natural"_s, outcome.callbacks());
        QTRY_COMPARE(
            outcome.calls, QStringList { u"error:Invalid API key. Please check your token in Settings."_s });
    }

    // Retry in the popup starts a new request; the abandoned one must not keep the model busy:
    // the popup cancels its running request before a retry; the server then ends its
    // upstream work.
    void aCancelledRequestEndsTheUpstreamWork()
    {
        m_upstream.setScript({ .fragments = { u"first"_s, u"rest"_s }, .stallAfter = 1 });
        startPair();
        HumanizeService service(*m_storage);
        const int abandonedBefore = m_upstream.abandonedReplies();

        RewriteRecorder first;
        const auto firstRequest = service.humanize(u"one"_s, u"natural"_s, first.callbacks());
        QTRY_COMPARE(first.calls, QStringList { u"token:first"_s });
        firstRequest->drop();
        RewriteRecorder second;
        service.humanize(u"two"_s, u"natural"_s, second.callbacks());

        QTRY_COMPARE(m_upstream.abandonedReplies(), abandonedBefore + 1);
        m_upstream.release();
        QTRY_COMPARE(second.calls, (QStringList { u"token:first"_s, u"token:rest"_s, u"complete"_s }));
        QCOMPARE(first.calls, QStringList { u"token:first"_s });
    }
};

QTEST_GUILESS_MAIN(TestRealPair)
#include "TestRealPair.moc"
