// Faults: a revoked token still let in, a new one ignored until a restart; a limit that never
// answers 429 or never lets go; metrics miscounted or unreadable; readiness that lies; a dead
// model server not skipped, or a retry after text; a stop that cuts streams or lets new ones in.
// tessary-server run for a team, over real loopback sockets.

#include "ClosedPort.h"
#include "RewriteServer.h"
#include "TokenStore.h"
#include "server/FixtureUpstream.h"
#include "server/RewriteBody.h"
#include "server/ServerClients.h"

#include <QJsonArray>
#include <QNetworkAccessManager>
#include <QProcess>
#include <QSslCertificate>
#include <QSslConfiguration>
#include <QSslSocket>
#include <QTemporaryDir>
#include <QTest>

#include <atomic>
#include <thread>

using namespace Qt::StringLiterals;

namespace {

const QString legacyToken = u"legacy-client-token"_s;

} // namespace

Q_DECLARE_METATYPE(UpstreamScript)

class TestRewriteServerForTeams : public QObject
{
    Q_OBJECT

private:
    ServerConfig config() const
    {
        ServerConfig config;
        config.port = 0;
        config.clientToken = legacyToken;
        config.upstreamUrl = m_upstream.baseUrl();
        config.tokensFile = m_dir.filePath(u"tokens"_s);
        config.tokensPollMilliseconds = 20;
        config.readinessProbeMilliseconds = 50;
        return config;
    }

    bool serve(const ServerConfig &config)
    {
        m_server = std::make_unique<RewriteServer>(config);
        return m_server->start();
    }

    QNetworkRequest request(const QString &path, const QString &token = {}) const
    {
        QNetworkRequest request(QUrl(u"http://127.0.0.1:%1%2"_s.arg(m_server->port()).arg(path)));
        request.setHeader(QNetworkRequest::ContentTypeHeader, u"application/json"_s);
        if (!token.isEmpty())
            request.setRawHeader("Authorization", "Bearer " + token.toUtf8());
        return request;
    }

    StreamReader *post(const QString &token)
    {
        auto *reader = new StreamReader(
            m_network.post(request(u"/api/v1/chat/completions"_s, token), rewriteBody(u"text"_s)));
        reader->setParent(this);
        return reader;
    }

    StreamReader *get(const QString &path, const QString &token = {})
    {
        auto *reader = new StreamReader(m_network.get(request(path, token)));
        reader->setParent(this);
        return reader;
    }

    // The status of a whole rewrite with `token`; 0 when none came.
    int statusOf(const QString &token)
    {
        StreamReader *reply = post(token);
        return QTest::qWaitFor([reply] { return reply->finished; }, 10000) ? reply->status() : 0;
    }

    // Asks again until the status is `status`: for what takes effect a moment later.
    bool becomes(const QString &token, int status, int timeoutMs = 5000)
    {
        QDeadlineTimer deadline(timeoutMs);
        while (!deadline.hasExpired()) {
            if (statusOf(token) == status)
                return true;
        }
        return false;
    }

    QTemporaryDir m_dir;
    QNetworkAccessManager m_network;
    FixtureUpstream m_upstream;
    FixtureUpstream m_first;
    std::unique_ptr<RewriteServer> m_server;

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_upstream.start());
        QVERIFY(m_first.start());
    }
    void init()
    {
        QFile::remove(m_dir.filePath(u"tokens"_s));
        m_upstream.setScript({ .fragments = { u"Hey"_s } });
    }
    void cleanup()
    {
        m_upstream.release();
        m_server.reset();
    }

    // The tokens file is edited while the server runs; the server follows it without a
    // restart. A revoked token is refused from then on, its running stream still finishes.
    void tokensTakeEffectWhileRunning_data()
    {
        QTest::addColumn<QString>("change"); // what happens to alice's token once she streams
        QTest::addColumn<int>("status"); // of alice's next rewrite
        QTest::newRow("kept") << u"none"_s << 200;
        QTest::newRow("revoked") << u"revoke"_s << 401;
        QTest::newRow("file spoiled: the tokens in force stay") << u"spoil"_s << 200;
    }
    void tokensTakeEffectWhileRunning()
    {
        QFETCH(QString, change);
        QVERIFY(serve(config()));
        TokenStore store(m_dir.filePath(u"tokens"_s));
        QVERIFY(store.load());
        const QString alice = store.add(u"alice"_s);
        QVERIFY(!alice.isEmpty());
        QVERIFY(becomes(alice, 200));
        QCOMPARE(statusOf(u"not-a-token"_s), 401);
        QCOMPARE(statusOf(legacyToken), 200); // the single token of before, as "default"

        m_upstream.setScript({ .fragments = { u"one"_s, u"two"_s }, .stallAfter = 1 });
        StreamReader *running = post(alice);
        QTRY_COMPARE(running->events(), QStringList { u"one"_s });
        if (change == "revoke"_L1)
            QVERIFY(store.revoke(u"alice"_s));
        if (change == "spoil"_L1) {
            QFile file(store.path());
            QVERIFY(file.open(QIODevice::Append));
            file.write("this is not a token line\n");
        }
        QFETCH(int, status);
        m_upstream.setScript({ .fragments = { u"Hey"_s } });
        QVERIFY(becomes(alice, status));
        if (change == "spoil"_L1) { // it was read: a later good file is taken again
            QVERIFY(store.revoke(u"alice"_s));
            QVERIFY(becomes(alice, 401));
        }
        m_upstream.release();
        QTRY_VERIFY(running->finished);
        QCOMPARE(running->events(), QStringList({ u"one"_s, u"two"_s, u"done"_s }));
    }

    // Each limit answers 429 naming itself, with Retry-After, and lets go again.
    void limitsAnswer429AndRecover_data()
    {
        QTest::addColumn<QString>("limit");
        QTest::addColumn<bool>("otherTokenServed"); // meanwhile, for bob
        QTest::newRow("max_streams") << u"max_streams"_s << false;
        QTest::newRow("max_streams_per_token") << u"max_streams_per_token"_s << true;
        QTest::newRow("requests_per_minute_per_token") << u"requests_per_minute_per_token"_s << true;
    }
    void limitsAnswer429AndRecover()
    {
        QFETCH(QString, limit);
        QFETCH(bool, otherTokenServed);
        ServerConfig limited = config();
        const bool concurrent = limit != "requests_per_minute_per_token"_L1;
        limited.maxStreams = limit == "max_streams"_L1 ? 1 : 10;
        limited.maxStreamsPerToken = limit == "max_streams_per_token"_L1 ? 1 : 0;
        limited.requestsPerMinutePerToken = concurrent ? 0 : 1;
        limited.rateWindowMilliseconds = 300;
        TokenStore store(limited.tokensFile);
        const QString alice = store.add(u"alice"_s);
        const QString bob = store.add(u"bob"_s);
        QVERIFY(serve(limited));

        if (concurrent)
            m_upstream.setScript({ .fragments = { u"one"_s, u"two"_s }, .stallAfter = 1 });
        StreamReader *first = post(alice);
        if (concurrent)
            QTRY_COMPARE(first->events(), QStringList { u"one"_s });
        else
            QTRY_VERIFY(first->finished);

        StreamReader *refused = post(alice);
        QTRY_VERIFY(refused->finished);
        QCOMPARE(refused->status(), 429);
        const QJsonObject error = QJsonDocument::fromJson(refused->body).object()["error"_L1].toObject();
        QCOMPARE(error["type"_L1].toString(), u"rate_limit_error"_s);
        QVERIFY2(error["message"_L1].toString().contains(u"(%1)"_s.arg(limit)), refused->body.constData());
        QCOMPARE(refused->reply->rawHeader("Retry-After"), QByteArray("1"));

        StreamReader *other = post(bob);
        if (otherTokenServed)
            QTRY_VERIFY(other->status() == 200);
        else
            QTRY_VERIFY(other->finished && other->status() == 429);

        m_upstream.release();
        QTRY_VERIFY(first->finished);
        QVERIFY(becomes(alice, 200));
    }

    // What monitoring reads: counters per token and outcome that match the requests sent,
    // parsed by Prometheus' own client library.
    void metricsCountRequestsPerToken()
    {
        ServerConfig limited = config();
        limited.requestsPerMinutePerToken = 3;
        TokenStore store(limited.tokensFile);
        const QString alice = store.add(u"alice"_s);
        QVERIFY(serve(limited));
        m_upstream.setScript({ .fragments = { u"a"_s, u"b"_s } });
        for (int i = 0; i < 3; ++i)
            QCOMPARE(statusOf(alice), 200);
        QCOMPARE(statusOf(alice), 429);
        QCOMPARE(statusOf(legacyToken), 200);
        QCOMPARE(statusOf(u"wrong"_s), 401);

        StreamReader *metrics = get(u"/metrics"_s);
        QTRY_VERIFY(metrics->finished);
        QCOMPARE(metrics->status(), 200);
        QVERIFY(metrics->reply->header(QNetworkRequest::ContentTypeHeader).toString().contains(u"0.0.4"_s));

        QProcess parser;
        parser.start(u"/usr/bin/python3"_s,
            { u"-c"_s,
                u"import sys, json\n"
                "from prometheus_client.parser import text_string_to_metric_families\n"
                "print(json.dumps([[s.name, s.labels, s.value] for f in "
                "text_string_to_metric_families(sys.stdin.read()) for s in f.samples]))\n"_s });
        parser.write(metrics->body);
        parser.closeWriteChannel();
        QVERIFY(parser.waitForFinished(20000));
        QVERIFY2(parser.exitCode() == 0, parser.readAllStandardError().constData());
        const QJsonArray samples = QJsonDocument::fromJson(parser.readAllStandardOutput()).array();
        const auto value = [&samples](const QString &name, const QVariantMap &labels = {}) {
            for (const QJsonValue &sample : samples) {
                if (sample[0].toString() == name && sample[1].toObject().toVariantMap() == labels)
                    return sample[2].toDouble();
            }
            return -1.0;
        };
        const auto requests = [&value](const QString &token, const QString &outcome) {
            return value(
                u"tessary_server_requests_total"_s, { { u"token"_s, token }, { u"outcome"_s, outcome } });
        };
        QCOMPARE(requests(u"alice"_s, u"finished"_s), 3.0);
        QCOMPARE(requests(u"alice"_s, u"rate_limited"_s), 1.0);
        QCOMPARE(requests(u"default"_s, u"finished"_s), 1.0);
        QCOMPARE(requests(u"-"_s, u"unauthorized"_s), 1.0);
        QCOMPARE(value(u"tessary_server_fragments_relayed_total"_s), 8.0);
        QCOMPARE(value(u"tessary_server_limit_refusals_total"_s,
                     { { u"limit"_s, u"requests_per_minute_per_token"_s } }),
            1.0);
        QCOMPARE(value(u"tessary_server_time_to_first_fragment_seconds_count"_s), 4.0);
        QCOMPARE(value(u"tessary_server_stream_duration_seconds_count"_s), 4.0);
        QCOMPARE(value(u"tessary_server_upstream_latency_seconds_count"_s,
                     { { u"upstream"_s, m_upstream.baseUrl() } }),
            4.0);
        QCOMPARE(value(u"tessary_server_streams_open"_s), 0.0);
        // Never a word of what was rewritten.
        QVERIFY(!metrics->body.contains("Confidential"));
    }

    void monitoringEndpoints_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QStringList>("upstreams"); // "dead": nothing listens; "fixture"
        QTest::addColumn<QString>("metricsToken"); // set in the config
        QTest::addColumn<QString>("given");
        QTest::addColumn<int>("status");
        QTest::addColumn<QString>("body"); // contained in it
        const QStringList fixture { u"fixture"_s };
        const QStringList dead { u"dead"_s };
        QTest::newRow("healthz without an upstream")
            << u"/healthz"_s << dead << QString() << QString() << 200 << u"ok"_s;
        QTest::newRow("readyz: the model server lists its models")
            << u"/readyz"_s << fixture << QString() << QString() << 200 << u"ready"_s;
        QTest::newRow("readyz: none answers") << u"/readyz"_s << dead << QString() << QString() << 503
                                              << u"no model server has answered its model list"_s;
        QTest::newRow("readyz: the second answers") << u"/readyz"_s << QStringList { u"dead"_s, u"fixture"_s }
                                                    << QString() << QString() << 200 << u"ready"_s;
        QTest::newRow("metrics open by default") << u"/metrics"_s << fixture << QString() << QString() << 200
                                                 << u"tessary_server_streams_open 0"_s;
        QTest::newRow("metrics token missing")
            << u"/metrics"_s << fixture << u"m-secret"_s << QString() << 401 << u"metrics_token"_s;
        QTest::newRow("metrics token given")
            << u"/metrics"_s << fixture << u"m-secret"_s << u"m-secret"_s << 200 << u"tessary_server_"_s;
    }
    void monitoringEndpoints()
    {
        QFETCH(QString, path);
        QFETCH(QStringList, upstreams);
        QFETCH(QString, metricsToken);
        QFETCH(QString, given);
        QFETCH(int, status);
        QFETCH(QString, body);
        ServerConfig monitored = config();
        QStringList urls;
        for (const QString &upstream : upstreams)
            urls << (upstream == "dead"_L1 ? u"http://127.0.0.1:%1/v1"_s.arg(closedPort())
                                           : m_upstream.baseUrl());
        monitored.upstreamUrl = urls.takeFirst();
        monitored.fallbackUrls = urls;
        monitored.metricsToken = metricsToken;
        QVERIFY(serve(monitored));
        // Readiness follows the probes: asked until the answer settles.
        StreamReader *reply = nullptr;
        QTRY_VERIFY((reply = get(path, given), QTest::qWaitFor([reply] { return reply->finished; }, 5000))
            && reply->status() == status);
        QVERIFY2(reply->body.contains(body.toUtf8()), reply->body.constData());
    }

    // A model server that refuses connections or fails with 5xx before any text is skipped;
    // one that failed after text is not retried, since the client has seen its words.
    void deadFirstUpstreamMovesRequestsToTheSecond_data()
    {
        QTest::addColumn<bool>("firstListens");
        QTest::addColumn<UpstreamScript>("firstScript");
        QTest::addColumn<QStringList>("events"); // of each of two rewrites
        QTest::addColumn<int>("firstRequests"); // the first model server gets, of the two
        QTest::addColumn<int>("secondRequests");
        const QStringList served { u"Hey"_s, u"done"_s };
        QTest::newRow("first refuses connections") << false << UpstreamScript {} << served << 0 << 2;
        QTest::newRow("first answers 502, then cools down")
            << true << UpstreamScript { .status = 502, .wholeBody = "<html>bad gateway</html>" } << served
            << 1 << 2;
        QTest::newRow("first fails after text: not retried")
            << true
            << UpstreamScript { .fragments = { u"Partial"_s },
                   .errorEvent = R"({"error":{"message":"model overloaded"}})",
                   .sendDone = false }
            << QStringList { u"Partial"_s,
                   u"error:The language model server reported an error: model overloaded"_s }
            << 2 << 0;
    }
    void deadFirstUpstreamMovesRequestsToTheSecond()
    {
        QFETCH(bool, firstListens);
        QFETCH(UpstreamScript, firstScript);
        m_first.setScript(firstScript);
        const qsizetype firstBefore = m_first.requests().size();
        const qsizetype secondBefore = m_upstream.requests().size();
        ServerConfig fallback = config();
        fallback.upstreamUrl
            = firstListens ? m_first.baseUrl() : u"http://127.0.0.1:%1/v1"_s.arg(closedPort());
        fallback.fallbackUrls = { m_upstream.baseUrl() };
        fallback.readinessProbeMilliseconds = 3600 * 1000; // only requests decide here
        QVERIFY(serve(fallback));
        for (int i = 0; i < 2; ++i) {
            StreamReader *reply = post(legacyToken);
            QTRY_VERIFY(reply->finished);
            QTEST(reply->events(), "events");
        }
        QTEST(int(m_first.requests().size() - firstBefore), "firstRequests");
        QTEST(int(m_upstream.requests().size() - secondBefore), "secondRequests");
    }

    // Stopping: no new connection is taken; a running stream goes on to its end within the
    // drain, or ends with an error event and a proper end of its body after it.
    void stopDrainsRunningStreams_data()
    {
        QTest::addColumn<int>("drainMs");
        QTest::addColumn<bool>("upstreamGoesOn");
        QTest::addColumn<QString>("last");
        QTest::newRow("finishes within the drain") << 30000 << true << u"done"_s;
        QTest::newRow("cut after the drain")
            << 50 << false
            << u"error:tessary-server is restarting and ended this rewrite. Try again in a moment."_s;
    }
    void stopDrainsRunningStreams()
    {
        QFETCH(int, drainMs);
        QFETCH(bool, upstreamGoesOn);
        QVERIFY(serve(config()));
        const int port = m_server->port();
        m_upstream.setScript({ .fragments = { u"one"_s, u"two"_s }, .stallAfter = 1 });
        StreamReader *running = post(legacyToken);
        QTRY_COMPARE(running->events(), QStringList { u"one"_s });

        // A health check whose head was on its way when the stop came is answered: not ready.
        // (A first answer on the same connection shows the server has taken it in.)
        RawClient checker(port);
        checker.socket.write("GET /healthz HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n");
        QTRY_VERIFY(checker.received.contains("\"ok\""));
        checker.received.clear();
        checker.socket.write("GET /readyz HTTP/1.1\r\nHost: 127.0.0.1\r\n");
        QTRY_COMPARE(checker.socket.bytesToWrite(), 0);

        std::atomic<bool> stopped = false;
        std::thread stopping([&] {
            m_server->stop(std::chrono::milliseconds(drainMs));
            stopped = true;
        });
        // The listening socket is closed: a new client is refused at once, not queued.
        QTRY_VERIFY([port] {
            QTcpSocket probe;
            probe.connectToHost(QHostAddress::LocalHost, quint16(port));
            return !probe.waitForConnected(2000);
        }());
        QVERIFY(!stopped || !upstreamGoesOn);
        if (upstreamGoesOn) { // within the drain; after it, every other connection is closed
            checker.socket.write("\r\n");
            QTRY_VERIFY(checker.closed());
            QCOMPARE(checker.status(), 503);
            QVERIFY2(checker.received.contains("tessary-server is stopping"), checker.received.constData());
        }
        if (upstreamGoesOn)
            m_upstream.release();
        QTRY_VERIFY(running->finished);
        QTRY_VERIFY(stopped);
        stopping.join();
        QCOMPARE(running->reply->error(), QNetworkReply::NoError); // the chunked body ended properly
        QFETCH(QString, last);
        QCOMPARE(running->events().last(), last);
        QCOMPARE(running->events().first(), u"one"_s);
    }

    // With tls_cert and tls_key the server speaks HTTPS itself; plain HTTP gets nothing.
    void tlsWithACertificateOfItsOwn_data()
    {
        QTest::addColumn<QString>("scheme");
        QTest::addColumn<bool>("trusted"); // the client knows the server's certificate
        QTest::addColumn<QStringList>("events"); // empty: no reply
        QTest::newRow("https, certificate trusted")
            << u"https"_s << true << QStringList({ u"Hey"_s, u"done"_s });
        QTest::newRow("https, certificate unknown") << u"https"_s << false << QStringList();
        QTest::newRow("plain http to the TLS port") << u"http"_s << false << QStringList();
    }
    void tlsWithACertificateOfItsOwn()
    {
        QFETCH(QString, scheme);
        QFETCH(bool, trusted);
        if (!QSslSocket::supportsSsl())
            QSKIP("Qt was built without TLS");
        const QString cert = m_dir.filePath(u"cert.pem"_s);
        const QString key = m_dir.filePath(u"key.pem"_s);
        QProcess openssl;
        openssl.start(u"openssl"_s,
            { u"req"_s, u"-x509"_s, u"-newkey"_s, u"ec"_s, u"-pkeyopt"_s, u"ec_paramgen_curve:prime256v1"_s,
                u"-nodes"_s, u"-days"_s, u"1"_s, u"-subj"_s, u"/CN=127.0.0.1"_s, u"-addext"_s,
                u"subjectAltName=IP:127.0.0.1"_s, u"-keyout"_s, key, u"-out"_s, cert });
        QVERIFY(openssl.waitForFinished(20000));
        QCOMPARE(openssl.exitCode(), 0);
        ServerConfig secure = config();
        secure.tlsCert = cert;
        secure.tlsKey = key;
        QVERIFY(serve(secure));

        QNetworkRequest request(
            QUrl(u"%1://127.0.0.1:%2/api/v1/chat/completions"_s.arg(scheme).arg(m_server->port())));
        request.setHeader(QNetworkRequest::ContentTypeHeader, u"application/json"_s);
        request.setRawHeader("Authorization", "Bearer " + legacyToken.toUtf8());
        QSslConfiguration tls = QSslConfiguration::defaultConfiguration();
        if (trusted)
            tls.setCaCertificates(QSslCertificate::fromPath(cert));
        request.setSslConfiguration(tls);
        auto *reply = new StreamReader(m_network.post(request, rewriteBody(u"text"_s)));
        reply->setParent(this);
        QTRY_VERIFY(reply->finished);
        QTEST(reply->events(), "events");
        QCOMPARE(reply->reply->error() == QNetworkReply::NoError, trusted);
    }
};

QTEST_GUILESS_MAIN(TestRewriteServerForTeams)
#include "TestRewriteServerForTeams.moc"
