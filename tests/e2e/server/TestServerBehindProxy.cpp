// Faults: an instance that stops cuts its streams without an error event or leaves them
// hanging; the balancer keeps sending to a stopped instance; an instance not ready is used.
// Several tessary-server programs behind HAProxy, as a team runs them.

#include "ClosedPort.h"
#include "server/FixtureUpstream.h"
#include "server/RewriteBody.h"
#include "server/ServerClients.h"

#include <QFile>
#include <QNetworkAccessManager>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

const QByteArray token = "team-token";

} // namespace

class TestServerBehindProxy : public QObject
{
    Q_OBJECT

private:
    // Starts an instance on a free port, relaying to the stand-in model server: its port, or 0.
    int startInstance(QProcess &server)
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(u"XDG_CONFIG_HOME"_s, m_home.path());
        server.setProcessEnvironment(environment);
        server.start(QString::fromLatin1(TESSARY_SERVER_PATH),
            { u"--port=0"_s, u"--upstream-url="_s + m_upstream.baseUrl(),
                u"--client-token="_s + QString::fromLatin1(token), u"--drain-seconds=0"_s });
        const QRegularExpression listening(u"listening on http://127\\.0\\.0\\.1:(\\d+)/api/v1"_s);
        QByteArray log;
        int port = 0;
        (void)QTest::qWaitFor(
            [&] {
                log += server.readAllStandardError();
                port = listening.match(QString::fromUtf8(log)).captured(1).toInt();
                return port > 0;
            },
            10000);
        return port;
    }

    StreamReader *post(int port)
    {
        QNetworkRequest request(QUrl(u"http://127.0.0.1:%1/api/v1/chat/completions"_s.arg(port)));
        request.setHeader(QNetworkRequest::ContentTypeHeader, u"application/json"_s);
        request.setRawHeader("Authorization", "Bearer " + token);
        auto *reader = new StreamReader(m_network.post(request, rewriteBody(u"text"_s)));
        reader->setParent(this);
        return reader;
    }

    QTemporaryDir m_home;
    FixtureUpstream m_upstream { 64 };
    QNetworkAccessManager m_network;

private Q_SLOTS:
    void initTestCase() { QVERIFY(m_upstream.start()); }

    // One instance stops while streams run through the balancer: its streams end with an
    // error event and a proper end, none hangs, and every later request is served by the other.
    void oneInstanceStopsDuringARunOfStreams_data()
    {
        QTest::addColumn<int>("streams");
        QTest::addColumn<int>("later");
        // Six: as many connections as the client library opens to one host at once.
        QTest::newRow("six streams, then ten requests") << 6 << 10;
    }
    void oneInstanceStopsDuringARunOfStreams()
    {
        QFETCH(int, streams);
        QFETCH(int, later);
        QProcess one;
        QProcess two;
        const int portOne = startInstance(one);
        const int portTwo = startInstance(two);
        QVERIFY(portOne > 0 && portTwo > 0);

        const quint16 front = closedPort();
        const QString config = m_home.filePath(u"haproxy.cfg"_s);
        QFile file(config);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(QStringLiteral("defaults\n    mode http\n    timeout connect 2s\n    timeout client 60s\n"
                                  "    timeout server 60s\n    retries 3\n    option redispatch\n"
                                  "frontend tessary\n    bind 127.0.0.1:%1\n    default_backend servers\n"
                                  "backend servers\n    balance roundrobin\n    option httpchk GET /readyz\n"
                                  "    http-check expect status 200\n"
                                  "    default-server inter 200ms fall 1 rise 1\n"
                                  "    server one 127.0.0.1:%2 check\n    server two 127.0.0.1:%3 check\n")
                       .arg(front)
                       .arg(portOne)
                       .arg(portTwo)
                       .toUtf8());
        file.close();
        QProcess proxy;
        proxy.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        proxy.start(u"haproxy"_s, { u"-db"_s, u"-f"_s, config });
        QVERIFY(proxy.waitForStarted());

        // Both instances ready (their model server listed its models) and taken by the proxy.
        m_upstream.setScript({ .fragments = { u"Hey"_s } });
        QTRY_VERIFY_WITH_TIMEOUT(
            [&] {
                QList<StreamReader *> probes;
                for (int i = 0; i < 4; ++i)
                    probes << post(front);
                (void)QTest::qWaitFor(
                    [&] {
                        return std::all_of(
                            probes.cbegin(), probes.cend(), [](auto *p) { return p->finished; });
                    },
                    5000);
                return std::all_of(
                    probes.cbegin(), probes.cend(), [](auto *p) { return p->status() == 200; });
            }(),
            20000);

        m_upstream.setScript({ .fragments = { u"one"_s, u"two"_s }, .stallAfter = 1 });
        QList<StreamReader *> running;
        for (int i = 0; i < streams; ++i)
            running << post(front);
        for (StreamReader *stream : std::as_const(running))
            QTRY_VERIFY(!stream->events().isEmpty());

        one.terminate();
        QTRY_COMPARE_WITH_TIMEOUT(one.state(), QProcess::NotRunning, 10000);
        QCOMPARE(one.exitCode(), 0);
        m_upstream.release();
        int cut = 0;
        for (StreamReader *stream : std::as_const(running)) {
            QTRY_VERIFY(stream->finished); // none hangs
            QCOMPARE(stream->reply->error(), QNetworkReply::NoError);
            const QStringList events = stream->events();
            if (events.last().startsWith(u"error:"_s)) {
                QVERIFY(events.last().contains(u"restarting"_s));
                ++cut;
            } else {
                QCOMPARE(events, QStringList({ u"one"_s, u"two"_s, u"done"_s }));
            }
        }
        QVERIFY2(cut > 0 && cut < streams, qPrintable(QString::number(cut)));

        m_upstream.setScript({ .fragments = { u"Hey"_s } });
        for (int i = 0; i < later; ++i) {
            StreamReader *reply = post(front);
            QTRY_VERIFY(reply->finished);
            QCOMPARE(reply->status(), 200);
            QCOMPARE(reply->events(), QStringList({ u"Hey"_s, u"done"_s }));
        }
        proxy.terminate();
        QTRY_COMPARE_WITH_TIMEOUT(proxy.state(), QProcess::NotRunning, 10000);
        two.terminate();
        QTRY_COMPARE_WITH_TIMEOUT(two.state(), QProcess::NotRunning, 10000);
        QCOMPARE(two.exitCode(), 0);
    }
};

QTEST_GUILESS_MAIN(TestServerBehindProxy)
#include "TestServerBehindProxy.moc"
