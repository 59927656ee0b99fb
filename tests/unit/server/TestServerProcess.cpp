// Faults: the token shown or lost; a port shared; forged log lines; no local model found.
// The tessary-server program as a user starts it.

#include "ClosedPort.h"
#include "FixtureServer.h"
#include "Replies.h"
#include "ScratchFiles.h"
#include "server/FixtureUpstream.h"
#include "server/RewriteBody.h"

#include <QDateTime>
#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QProcess>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QTest>

#include <sys/stat.h>

using namespace Qt::StringLiterals;

class TestServerProcess : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_home;
    FixtureUpstream m_upstream;
    QNetworkAccessManager m_network;

    // The program's environment, its settings under `home`.
    static QProcessEnvironment environmentFor(const QString &home)
    {
        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert(u"XDG_CONFIG_HOME"_s, home);
        environment.remove(u"TESSARY_SERVER_UPSTREAM_URL"_s);
        return environment;
    }

    static QString tokenFile(const QString &home) { return home + u"/tessary-server/client-token"_s; }
    static QByteArray tokenIn(const QString &home) { return ScratchFiles::read(tokenFile(home)).trimmed(); }

    // Its settings are in the shared home unless `server` was given an environment.
    void launch(QProcess &server, int port, const QStringList &arguments = {})
    {
        if (server.processEnvironment().isEmpty())
            server.setProcessEnvironment(environmentFor(m_home.path()));
        server.start(
            QString::fromLatin1(TESSARY_SERVER_PATH), QStringList { u"--port=%1"_s.arg(port) } + arguments);
    }

    // Starts the program on a free port: where it listens, 0 when it did not come up.
    int start(QProcess &server, const QStringList &arguments = {}, QByteArray *logged = nullptr)
    {
        launch(server, 0, arguments);
        const QRegularExpression listening(u"listening on http://127\\.0\\.0\\.1:(\\d+)/api/v1"_s);
        QByteArray scratch;
        QByteArray &log = logged ? *logged : scratch;
        int port = 0;
        [&] {
            QTRY_VERIFY_WITH_TIMEOUT((log += server.readAllStandardError(),
                                         port = listening.match(QString::fromUtf8(log)).captured(1).toInt())
                    > 0,
                10000);
        }();
        return port;
    }

    // The status of a reply, once it is finished.
    static int statusOf(QNetworkReply *reply)
    {
        QSignalSpy finished(reply, &QNetworkReply::finished);
        if (!reply->isFinished() && !finished.wait(10000))
            return 0;
        return reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    }

    QNetworkReply *rewrite(int port, const QByteArray &token, const QByteArray &body = rewriteBody(u"hi"_s))
    {
        QNetworkRequest request(QUrl(u"http://127.0.0.1:%1/api/v1/chat/completions"_s.arg(port)));
        request.setHeader(QNetworkRequest::ContentTypeHeader, u"application/json"_s);
        request.setRawHeader("Authorization", "Bearer " + token);
        return m_network.post(request, body);
    }

    void stop(QProcess &server)
    {
        server.terminate();
        QVERIFY(server.waitForFinished(5000));
        QCOMPARE(server.exitStatus(), QProcess::NormalExit);
        QCOMPARE(server.exitCode(), 0);
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_home.isValid());
        QVERIFY(m_upstream.start());
        m_upstream.setScript({ .fragments = { u"Hey"_s } });
        QDir(m_home.path()).mkpath(u"tessary-server"_s);
        QFile config(m_home.filePath(u"tessary-server/config.toml"_s));
        QVERIFY(config.open(QIODevice::WriteOnly));
        config.write("upstream_url = \"" + m_upstream.baseUrl().toUtf8() + "\"\nmodel = \"from-config\"\n");
    }

    void firstStartNamesTheTokenFileItIsTheKeyAndTheServerKeepsItsPort()
    {
        QProcess first;
        const int port = start(first);
        QVERIFY(port > 0);
        QTRY_VERIFY(first.bytesAvailable() > 0);
        const QString banner = QString::fromUtf8(first.readAllStandardOutput());
        const QByteArray token = tokenIn(m_home.path());
        QVERIFY(!token.isEmpty());
        // Where the token is, never the token: a terminal's scrollback is no place for it.
        QVERIFY2(banner.contains(tokenFile(m_home.path())) && !banner.contains(QString::fromLatin1(token)),
            qPrintable(banner));

        QNetworkReply *reply = rewrite(port, token);
        QCOMPARE(statusOf(reply), 200);
        QVERIFY(reply->readAll().contains(R"("content":"Hey")"));
        QCOMPARE(m_upstream.requests().last().body.value("model"_L1).toString(), u"from-config"_s);

        // Two servers sharing a port would hand each client to either at random, each with
        // its own token: a second one on the same port must refuse to start instead.
        QProcess taken;
        launch(taken, port);
        QVERIFY(taken.waitForFinished(10000));
        QCOMPARE(taken.exitCode(), 1);
        QVERIFY(taken.readAllStandardError().contains("cannot listen"));
        stop(first);

        QProcess second;
        const int secondPort = start(second);
        QVERIFY(secondPort > 0);
        QCOMPARE(statusOf(rewrite(secondPort, token)), 200);
        QVERIFY(second.readAllStandardOutput().isEmpty());
        stop(second);
    }

    // What a client sends must not be able to start a log line of its own: an operator
    // reading the log would take a forged line for the server's.
    void clientTextCannotForgeLogLines_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("tone");
        QTest::addColumn<QString>("sample");
        const QString forged = u"2020-01-01T00:00:00.000Z #7 done: 1 fragments in 1 ms"_s;
        QTest::newRow("line feed in the tone") << QStringList() << u"natural\n"_s + forged << u"Cheers"_s;
        QTest::newRow("carriage return in the tone")
            << QStringList() << u"natural\r"_s + forged << u"Cheers"_s;
        QTest::newRow("line feed in a sample, verbose")
            << QStringList { u"--verbose"_s } << u"natural"_s << u"Cheers\n"_s + forged;
    }
    void clientTextCannotForgeLogLines()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QString, tone);
        QFETCH(QString, sample);
        QProcess server;
        const int port = start(server, arguments);
        QVERIFY(port > 0);
        QCOMPARE(
            statusOf(rewrite(port, tokenIn(m_home.path()), rewriteBody(u"hi"_s, { sample }, tone))), 200);
        QByteArray log;
        QTRY_VERIFY((log += server.readAllStandardError()).contains(" done: "));
        stop(server);

        // Every line the request caused is the server's own, and the forged text is in one of them.
        const QList<QByteArray> lines = QByteArray(log).replace('\r', '\n').split('\n');
        for (const QByteArray &line : lines)
            QVERIFY2(line.isEmpty()
                    || line.startsWith(QDateTime::currentDateTimeUtc().toString(u"yyyy-"_s).toLatin1()),
                log.constData());
        QVERIFY2(log.contains("#7 done: 1 fragments in 1 ms"), log.constData());
    }
    // With no upstream_url set, as `make run` starts it on a new machine, it takes a model
    // server with a model on this machine, and asks it for the model it listed.
    void upstreamFromThisMachine_data()
    {
        QTest::addColumn<QByteArray>("models"); // what the local server lists; empty: nothing listens
        QTest::addColumn<QString>("logged"); // %1: the local server's port
        QTest::addColumn<QString>("model"); // asked of the local server by a rewrite; empty: no rewrite
        const QString none = u"no upstream_url set and no model server with a model found on this machine"_s;
        QTest::newRow("a model server with models")
            << QByteArray(R"({"object":"list","data":[{"id":"found-7b"},{"id":"other-3b"}]})")
            << u"upstream found on this machine: a model server at http://127.0.0.1:%1/v1, model found-7b"_s
            << u"found-7b"_s;
        QTest::newRow("a model server without a model")
            << QByteArray(R"({"object":"list","data":[]})") << none << QString();
        QTest::newRow("nothing listening") << QByteArray() << none << QString();
    }
    void upstreamFromThisMachine()
    {
        QFETCH(QByteArray, models);
        QFETCH(QString, logged);
        QFETCH(QString, model);
        FixtureServer local;
        QVERIFY(local.listen());
        const quint16 localPort = models.isEmpty() ? closedPort() : local.port();
        local.route("/v1/models", jsonReply(200, models));
        local.route("/v1/chat/completions", eventStream({ "Hey" }));

        QTemporaryDir home;
        QProcessEnvironment environment = environmentFor(home.path());
        environment.insert(u"TESSARY_LOCAL_MODEL_PORTS"_s, QString::number(localPort));
        QProcess server;
        server.setProcessEnvironment(environment);
        QByteArray log;
        const int port = start(server, {}, &log);
        QVERIFY(port > 0);
        QVERIFY2(log.contains(logged.arg(localPort).toUtf8()), log.constData());
        if (!model.isEmpty()) {
            // The model it took, for a client's connection test: with the token only.
            for (const bool withToken : { false, true }) {
                QNetworkRequest ask(QUrl(u"http://127.0.0.1:%1/api/v1/models"_s.arg(port)));
                if (withToken)
                    ask.setRawHeader("Authorization", "Bearer " + tokenIn(home.path()));
                QNetworkReply *listed = m_network.get(ask);
                QCOMPARE(statusOf(listed), withToken ? 200 : 401);
                if (withToken)
                    QCOMPARE(
                        QJsonDocument::fromJson(listed->readAll())["data"_L1][0]["id"_L1].toString(), model);
            }
            QNetworkReply *reply = rewrite(port, tokenIn(home.path()));
            QCOMPARE(statusOf(reply), 200);
            QVERIFY(reply->readAll().contains(R"("content":"Hey")"));
            QCOMPARE(local.requests().last().path, QByteArray("/v1/chat/completions"));
            QCOMPARE(QJsonDocument::fromJson(local.requests().last().body)["model"_L1].toString(), model);
        }
        stop(server);
    }

    // `token add | list | revoke` edit the tokens file; the token is printed once, as the
    // last line, and only its hash is kept.
    void tokenCommands_data()
    {
        QTest::addColumn<QStringList>("command");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("output"); // in stdout (or stderr when failing)
        QTest::addColumn<QStringList>("names"); // listed afterwards
        const QStringList token { u"token"_s };
        QTest::newRow("add") << QStringList { u"add"_s, u"carol"_s } << 0 << u"token for carol"_s
                             << QStringList { u"alice"_s, u"carol"_s };
        QTest::newRow("add a name taken") << QStringList { u"add"_s, u"alice"_s } << 1
                                          << u"already has a token"_s << QStringList { u"alice"_s };
        QTest::newRow("add a name with a space") << QStringList { u"add"_s, u"a b"_s } << 1
                                                 << u"is not a token name"_s << QStringList { u"alice"_s };
        QTest::newRow("revoke") << QStringList { u"revoke"_s, u"alice"_s } << 0 << u"revoked"_s
                                << QStringList();
        QTest::newRow("revoke someone unknown")
            << QStringList { u"revoke"_s, u"dave"_s } << 1 << u"has no token"_s << QStringList { u"alice"_s };
        QTest::newRow("unknown verb")
            << QStringList { u"drop"_s } << 2 << u"usage"_s << QStringList { u"alice"_s };
    }
    void tokenCommands()
    {
        QFETCH(QStringList, command);
        QTemporaryDir home;
        const auto run = [&home](const QStringList &words) {
            auto *process = new QProcess;
            process->setProcessEnvironment(environmentFor(home.path()));
            process->start(QString::fromLatin1(TESSARY_SERVER_PATH), QStringList { u"token"_s } + words);
            process->waitForFinished(10000);
            return std::unique_ptr<QProcess>(process);
        };
        const auto first = run({ u"add"_s, u"alice"_s });
        QCOMPARE(first->exitCode(), 0);
        const QByteArray aliceToken = first->readAllStandardOutput().trimmed().split('\n').last();
        const QString file = home.filePath(u"tessary-server/tokens"_s);
        struct stat info = {};
        QCOMPARE(::stat(QFile::encodeName(file).constData(), &info), 0);
        QCOMPARE(info.st_mode & 0777, 0600u);
        QVERIFY(!ScratchFiles::read(file).contains(aliceToken));

        const auto done = run(command);
        QTEST(done->exitCode(), "exitCode");
        QFETCH(QString, output);
        const QByteArray said = done->readAllStandardOutput() + done->readAllStandardError();
        QVERIFY2(said.contains(output.toUtf8()), said.constData());
        const auto listed = run({ u"list"_s });
        QStringList names;
        for (const QByteArray &line : listed->readAllStandardOutput().split('\n')) {
            if (!line.isEmpty())
                names << QString::fromUtf8(line.split('\t').first());
        }
        QTEST(names, "names");
        QVERIFY(!ScratchFiles::read(file).contains(aliceToken));
    }

    // Under systemd's socket activation the listening socket is handed over already open:
    // the server serves on it instead of binding its own port.
    void listeningSocket_data()
    {
        QTest::addColumn<bool>("handedOver");
        QTest::newRow("bound by the server") << false;
        QTest::newRow("handed over by systemd") << true;
    }
    void listeningSocket()
    {
        QFETCH(bool, handedOver);
        const quint16 port = closedPort();
        QProcess server;
        server.setProcessEnvironment(environmentFor(m_home.path()));
        server.setProcessChannelMode(QProcess::ForwardedErrorChannel);
        const QStringList arguments { QString::fromLatin1(TESSARY_SERVER_PATH),
            u"--port=%1"_s.arg(handedOver ? 1 : port) };
        if (handedOver)
            server.start(u"systemd-socket-activate"_s,
                QStringList { u"-l"_s, u"127.0.0.1:%1"_s.arg(port), u"-E"_s, u"XDG_CONFIG_HOME"_s }
                    + arguments);
        else
            server.start(arguments.first(), arguments.mid(1));
        QVERIFY(server.waitForStarted());
        QNetworkReply *reply = nullptr;
        // Asked until it listens: the program announces nothing to wait on here.
        QTRY_VERIFY_WITH_TIMEOUT(
            (reply = rewrite(port, tokenIn(m_home.path())), statusOf(reply) == 200), 10000);
        QVERIFY(reply->readAll().contains(R"("content":"Hey")"));
        server.terminate();
        QTRY_COMPARE_WITH_TIMEOUT(server.state(), QProcess::NotRunning, 10000);
        QCOMPARE(server.exitStatus(), QProcess::NormalExit);
        QCOMPARE(server.exitCode(), 0);
    }

    // SIGTERM: the server stops taking connections, lets a running stream end, and exits 0;
    // or, past drain_seconds, ends it with an error event and a proper end.
    void sigtermDrainsRunningStreams_data()
    {
        QTest::addColumn<QString>("drainSeconds");
        QTest::addColumn<bool>("upstreamGoesOn");
        QTest::addColumn<QByteArray>("end"); // the last event of the running stream
        QTest::newRow("stream finishes") << u"30"_s << true << QByteArray("data: [DONE]");
        QTest::newRow("stream past the drain")
            << u"0"_s << false << QByteArray("tessary-server is restarting");
    }
    void sigtermDrainsRunningStreams()
    {
        QFETCH(QString, drainSeconds);
        QFETCH(bool, upstreamGoesOn);
        m_upstream.setScript({ .fragments = { u"one"_s, u"two"_s }, .stallAfter = 1 });
        QProcess server;
        const int port = start(server, { u"--drain-seconds="_s + drainSeconds });
        QVERIFY(port > 0);
        QNetworkReply *running = rewrite(port, tokenIn(m_home.path()));
        QByteArray received;
        connect(running, &QNetworkReply::readyRead, this, [&] { received += running->readAll(); });
        QTRY_VERIFY(received.contains(R"("content":"one")"));

        server.terminate();
        QTRY_VERIFY([port] {
            QTcpSocket probe;
            probe.connectToHost(QHostAddress::LocalHost, quint16(port));
            return !probe.waitForConnected(2000);
        }());
        if (upstreamGoesOn)
            m_upstream.release();
        QCOMPARE(statusOf(running), 200);
        received += running->readAll();
        QCOMPARE(running->error(), QNetworkReply::NoError);
        QFETCH(QByteArray, end);
        QVERIFY2(received.trimmed().split('\n').last().contains(end), received.constData());
        // Its end may have been seen while the test waited above.
        QTRY_COMPARE_WITH_TIMEOUT(server.state(), QProcess::NotRunning, 10000);
        QCOMPARE(server.exitStatus(), QProcess::NormalExit);
        QCOMPARE(server.exitCode(), 0);
        m_upstream.setScript({ .fragments = { u"Hey"_s } });
    }
};

QTEST_GUILESS_MAIN(TestServerProcess)
#include "TestServerProcess.moc"
