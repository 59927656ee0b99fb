// Faults: a rewrite relayed wrong or late, an error lost, a hostile client let in or kept, a key shown.

#include "RewriteServer.h"
#include "server/FixtureUpstream.h"
#include "server/RewriteBody.h"
#include "server/ServerClients.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QPointer>
#include <QTcpSocket>
#include <QTest>

#include <sys/socket.h>

using namespace Qt::StringLiterals;

namespace {

const QString token = u"test-client-token"_s;

} // namespace

Q_DECLARE_METATYPE(UpstreamScript)

class TestRewriteServer : public QObject
{
    Q_OBJECT

private:
    // The server of the running test, on a free port, relaying to the stand-in upstream.
    bool serve(const ServerConfig &config)
    {
        m_server = std::make_unique<RewriteServer>(config);
        return m_server->start();
    }

    ServerConfig config() const
    {
        ServerConfig config;
        config.port = 0;
        config.clientToken = token;
        config.upstreamUrl = m_upstream.baseUrl();
        config.model = u"tiny-model"_s;
        config.upstreamKey = u"upstream-secret"_s;
        config.releaseVersion = u"1.0.0"_s;
        config.maxBodyBytes = 64 * 1024;
        return config;
    }

    StreamReader *post(const QByteArray &body)
    {
        QNetworkRequest request(QUrl(u"http://127.0.0.1:%1/api/v1/chat/completions"_s.arg(m_server->port())));
        request.setHeader(QNetworkRequest::ContentTypeHeader, u"application/json"_s);
        request.setRawHeader("Authorization", "Bearer " + token.toUtf8());
        auto *reader = new StreamReader(m_network.post(request, body));
        reader->setParent(this);
        return reader;
    }

    QNetworkAccessManager m_network;
    FixtureUpstream m_upstream;
    std::unique_ptr<RewriteServer> m_server;

private Q_SLOTS:
    void initTestCase() { QVERIFY(m_upstream.start()); }
    void cleanup() { m_server.reset(); }

    void upstreamGetsThePromptAndTheTextUnchanged_data()
    {
        QTest::addColumn<QString>("tone");
        QTest::addColumn<QString>("toneText");
        QTest::newRow("known tone") << u"punchy"_s << u"short sentences, strong verbs"_s;
        QTest::newRow("unknown tone passed on as words") << u"like a pirate"_s << u"Tone: like a pirate."_s;
    }
    void upstreamGetsThePromptAndTheTextUnchanged()
    {
        QFETCH(QString, tone);
        QFETCH(QString, toneText);
        const QStringList fragments { u"Hey"_s, u" there"_s, u" — ✓"_s };
        m_upstream.setScript({ .fragments = fragments });
        const int before = int(m_upstream.requests().size());
        QVERIFY(serve(config()));

        const QString text = u"  Line one \"quoted\" \\ back\n\n- item 日本語 🙂\t"_s;
        StreamReader *reply = post(rewriteBody(text, { u"Cheers, Sam"_s, u"Yo, quick one:"_s }, tone));
        QTRY_VERIFY(reply->finished);

        QCOMPARE(reply->status(), 200);
        QCOMPARE(reply->events(), fragments + QStringList { u"done"_s });

        QCOMPARE(m_upstream.requests().size(), before + 1);
        const UpstreamRequest seen = m_upstream.requests().last();
        QCOMPARE(seen.authorization, u"Bearer upstream-secret"_s);
        QCOMPARE(seen.body.value("model"_L1).toString(), u"tiny-model"_s);
        QCOMPARE(seen.body.value("stream"_L1).toBool(), true);
        const QJsonArray messages = seen.body.value("messages"_L1).toArray();
        QCOMPARE(messages.size(), 2);
        QCOMPARE(messages[0]["role"_L1].toString(), u"system"_s);
        const QString system = messages[0]["content"_L1].toString();
        QVERIFY(system.contains(u"Cheers, Sam"_s));
        QVERIFY(system.contains(u"Yo, quick one:"_s));
        QVERIFY2(system.contains(toneText), qPrintable(system));
        QCOMPARE(messages[1]["role"_L1].toString(), u"user"_s);
        QCOMPARE(messages[1]["content"_L1].toString(), text);
    }

    // The first fragments reach the client while the upstream is still writing; a client
    // that hangs up then ends the upstream request too. A request beyond the stream limit is
    // refused at once; a stream that ended either way makes room again.
    void fragmentsArriveBeforeTheUpstreamFinishes_data()
    {
        QTest::addColumn<bool>("hangUp");
        QTest::newRow("client reads to the end") << false;
        QTest::newRow("client hangs up") << true;
    }
    void fragmentsArriveBeforeTheUpstreamFinishes()
    {
        QFETCH(bool, hangUp);
        m_upstream.setScript({ .fragments = { u"one"_s, u"two"_s, u"three"_s }, .stallAfter = 2 });
        const int finishedBefore = m_upstream.finishedReplies();
        const int abandonedBefore = m_upstream.abandonedReplies();
        ServerConfig limited = config();
        limited.maxStreams = 1;
        QVERIFY(serve(limited));

        StreamReader *reply = post(rewriteBody(u"text"_s));
        QTRY_COMPARE(reply->events(), QStringList({ u"one"_s, u"two"_s }));
        QCOMPARE(m_upstream.finishedReplies(), finishedBefore);
        QVERIFY(!reply->finished);
        QCOMPARE(m_server->activeStreams(), 1);
        StreamReader *refused = post(rewriteBody(u"second"_s));
        QTRY_VERIFY(refused->finished);
        QCOMPARE(refused->status(), 429);
        QVERIFY(refused->body.contains("rate_limit_error"));
        if (hangUp) {
            reply->reply->abort();
            QTRY_COMPARE(m_upstream.abandonedReplies(), abandonedBefore + 1);
            QTRY_COMPARE(m_server->activeStreams(), 0);
        }
        m_upstream.release();
        if (!hangUp) {
            QTRY_VERIFY(reply->finished);
            QCOMPARE(reply->events(), QStringList({ u"one"_s, u"two"_s, u"three"_s, u"done"_s }));
        }
        StreamReader *next = post(rewriteBody(u"third"_s));
        QTRY_VERIFY(next->finished);
        QCOMPARE(next->status(), 200);
    }

    // Problems with the model server reach the user as an error event in the stream. A key
    // in the upstream's query string (some hosted services take it there) reaches only it.
    void upstreamFailuresAreStreamedErrors_data()
    {
        // Empty: none configured; "fixture": the stand-in, with what follows as its query.
        QTest::addColumn<QString>("upstreamUrl");
        QTest::addColumn<UpstreamScript>("script");
        QTest::addColumn<QStringList>("fragments");
        QTest::addColumn<QString>("message"); // contained in the error event's message

        const auto row = [](const char *name, const QString &upstreamUrl, const UpstreamScript &script,
                             const QString &message, const QStringList &fragments = {}) {
            QTest::newRow(name) << upstreamUrl << script << fragments << message;
        };
        const QString fixture = u"fixture"_s;
        row("no upstream configured", QString(), {},
            u"No language model is configured for tessary-server: set upstream_url, for example "
            "http://localhost:11434/v1 for Ollama."_s);
        row("upstream not an http address", u"localhost:11434"_s, {},
            u"is not an http:// or https:// address"_s);
        row("upstream unreachable", u"http://127.0.0.1:1/v1"_s, {},
            u"cannot reach the language model server at http://127.0.0.1:1/v1"_s);
        row("upstream refuses its key given in the query", u"fixture?api-key=s3cret"_s,
            { .status = 401, .wholeBody = R"({"error":{"message":"Incorrect API key provided"}})" },
            u"answered HTTP 401: Incorrect API key provided. Check upstream_key"_s);
        row("upstream error page", fixture, { .status = 502, .wholeBody = "<html>bad gateway</html>" },
            u"answered HTTP 502."_s);
        row("upstream error event after fragments", fixture,
            { .fragments = { u"Partial"_s },
                .errorEvent = R"({"error":{"message":"model overloaded"}})",
                .sendDone = false },
            u"reported an error: model overloaded"_s, { u"Partial"_s });
        row("upstream answers without text", fixture, {}, u"returned no text"_s);
        row("upstream line without an end", fixture,
            { .rawStream = "data: " + QByteArray(2 * 1024 * 1024, 'x') },
            u"sent a line longer than tessary-server accepts"_s);
        row("upstream reply head without bounds", fixture,
            { .fragments = { u"never"_s }, .extraHeaders = 2000 },
            u"sent a reply head larger than tessary-server accepts"_s);
    }
    void upstreamFailuresAreStreamedErrors()
    {
        QFETCH(QString, upstreamUrl);
        QFETCH(UpstreamScript, script);
        m_upstream.setScript(script);
        const bool fixture = upstreamUrl.startsWith("fixture"_L1);
        ServerConfig failing = config();
        failing.upstreamUrl = fixture ? m_upstream.baseUrl() + upstreamUrl.sliced(7) : upstreamUrl;
        QVERIFY(serve(failing));

        StreamReader *reply = post(rewriteBody(u"text"_s));
        QTRY_VERIFY(reply->finished);
        QCOMPARE(reply->status(), 200);
        // The fragments, then one error and no end marker.
        const QStringList events = reply->events();
        QVERIFY(!events.isEmpty());
        QTEST(events.first(events.size() - 1), "fragments");
        QFETCH(QString, message);
        QVERIFY2(events.last().startsWith(u"error:"_s) && events.last().contains(message)
                && !events.last().contains(u"s3cret"_s),
            qPrintable(events.join(u" | "_s)));
        if (fixture)
            QCOMPARE(m_upstream.requests().last().target, u"/v1/chat/completions"_s + upstreamUrl.sliced(7));
        QCOMPARE(m_server->activeStreams(), 0);
    }

    // Requests the server will not take get one JSON error object, which the program shows
    // as it is (or, for a bad token, as its own hint to check Settings), and reach no
    // upstream. What hostile clients sent to exhaust the server is refused before it costs
    // more than a moment; what a legitimate but unusual client does is served.
    void refusals_data()
    {
        QTest::addColumn<QString>("serverToken");
        QTest::addColumn<QByteArray>("request");
        QTest::addColumn<bool>("halfClose");
        QTest::addColumn<int>("status"); // 0: closed without a reply
        QTest::addColumn<QString>("message"); // contained in the error's message, or in a reply

        const QByteArray bearer = "Authorization: Bearer " + token.toUtf8() + "\r\n";
        const QString badToken = u"Invalid API key"_s;
        const QString tooLarge = u"larger than tessary-server accepts"_s;
        QByteArray tinyHeaders;
        for (int i = 0; i < 1000; ++i)
            tinyHeaders += "a:b\r\n";
        QByteArray largeHeaders = bearer;
        for (int i = 0; i < 5; ++i)
            largeHeaders += "X-Padding-" + QByteArray::number(i) + ": " + QByteArray(4000, 'p') + "\r\n";

        const auto row = [](const char *name, const QByteArray &request, int status, const QString &message,
                             const QString &serverToken = token, bool halfClose = false) {
            QTest::newRow(name) << serverToken << request << halfClose << status << message;
        };
        row("wrong client token", rawPost("Authorization: Bearer nope\r\n"), 401, badToken);
        row("token with a different length", rawPost("Authorization: Bearer " + token.toUtf8() + "x\r\n"),
            401, badToken);
        row("no client token", rawPost({}), 401, badToken);
        row("token percent-encoded",
            rawPost("Authorization: Bearer " + token.toUtf8().toPercentEncoding("", "-") + "\r\n"), 401,
            badToken);
        row("server without a token", rawPost("Authorization: Bearer x\r\n"), 401, badToken, QString());
        row("body not JSON", rawPost(bearer, "{\"messages\": ["), 400, u"not a JSON object"_s);
        row("no user message",
            rawPost(bearer, R"({"stream":true,"examples":[],"tone":"natural","messages":[]})"), 400,
            u"user message"_s);
        row("examples not strings",
            rawPost(bearer, R"({"examples":[1],"messages":[{"role":"user","content":"hi"}]})"), 400,
            u"\"examples\""_s);
        row("headers over the limit", rawPost(largeHeaders), 431, u"request headers are larger"_s);
        row("a thousand tiny headers", rawPost(tinyHeaders), 431, u"request headers are larger"_s);
        const QByteArray large = rewriteBody(QString(70 * 1024, u'a'));
        row("body over the limit", rawPost(bearer, large), 413, tooLarge);
        row("chunked body over the limit", rawPost(bearer + "Transfer-Encoding: chunked\r\n", chunked(large)),
            413, tooLarge);
        // Just under the limit as data, over it with the framing around that data.
        const QByteArray nearly = rewriteBody(QString(60 * 1024, u'a'));
        QByteArray extended;
        for (qsizetype at = 0; at < nearly.size(); at += 1000) {
            const QByteArray piece = nearly.mid(at, 1000);
            extended += QByteArray::number(piece.size(), 16) + ";note=" + QByteArray(200, 'x') + "\r\n"
                + piece + "\r\n";
        }
        row("chunk extensions beyond the limit",
            rawPost(bearer + "Transfer-Encoding: chunked\r\n", extended + "0\r\n\r\n"), 413, tooLarge);
        QByteArray trailers;
        for (int i = 0; i < 8; ++i)
            trailers += "X-Trailer-" + QByteArray::number(i) + ": " + QByteArray(1000, 't') + "\r\n";
        row("trailers beyond the limit",
            rawPost(
                bearer + "Transfer-Encoding: chunked\r\n", chunked(nearly).chopped(2) + trailers + "\r\n"),
            413, tooLarge);
        row("ten gigabytes announced, none sent", rawPost(bearer + "Content-Length: 10000000000\r\n", {}),
            413, tooLarge);
        row("request head never finished", "POST /api/v1/chat/completions HTTP/1.1\r\nHost: 127.0.0.1\r\n", 0,
            QString()); // closed without a reply
        row("half-closed after the request", rawPost(bearer), 200, u"data: [DONE]"_s, token, true);
    }
    void refusals()
    {
        QFETCH(QString, serverToken);
        QFETCH(QByteArray, request);
        QFETCH(bool, halfClose);
        QFETCH(int, status);
        QFETCH(QString, message);
        m_upstream.setScript({ .fragments = { u"Hey"_s } });
        const qsizetype upstreamRequestsBefore = m_upstream.requests().size();
        ServerConfig strict = config();
        strict.clientToken = serverToken;
        strict.requestHeadSeconds = 1;
        QVERIFY(serve(strict));

        RawClient client(m_server->port());
        client.socket.write(request);
        QTRY_COMPARE(client.socket.bytesToWrite(), 0);
        if (halfClose)
            client.halfClose();
        QTRY_VERIFY(client.closed());
        QCOMPARE(client.status(), status);
        if (status == 200) {
            QVERIFY2(client.received.contains(message.toUtf8()), client.received.constData());
            return;
        }
        const QByteArray body = client.received.mid(client.received.indexOf("\r\n\r\n") + 4);
        const QJsonObject error = QJsonDocument::fromJson(body).object().value("error"_L1).toObject();
        if (status != 0)
            QCOMPARE(error.value("type"_L1).toString(), u"invalid_request_error"_s);
        QVERIFY2(
            error.value("message"_L1).toString().contains(message), client.received.left(2000).constData());
        QCOMPARE(m_upstream.requests().size(), upstreamRequestsBefore);
    }

    // At the caps, a connection that has shown no valid token gives way to a newcomer, the
    // oldest first, so slow heads cannot lock out a client with a token, even from its own
    // address. Connections that have shown one are never closed for room: beyond them, a
    // newcomer is answered 503 at once instead of waiting for a turn.
    void connectionsBeyondTheCaps_data()
    {
        QTest::addColumn<int>("maxConnections");
        QTest::addColumn<int>("maxPerAddress");
        QTest::addColumn<QString>("secondFrom");
        QTest::addColumn<bool>("firstTwoProven"); // they fetched the models with the token
        QTest::addColumn<int>("status"); // of the third, a rewrite with the token from 127.0.0.1
        QTest::addColumn<bool>("firstClosed");
        QTest::newRow("silent heads from the client's own address give way")
            << 100 << 2 << u"127.0.0.1"_s << false << 200 << true;
        QTest::newRow("silent heads give way in total") << 2 << 100 << u"127.0.0.2"_s << false << 200 << true;
        QTest::newRow("a silent head from another address is kept")
            << 100 << 2 << u"127.0.0.2"_s << false << 200 << false;
        QTest::newRow("connections with a token are kept, the newcomer refused")
            << 2 << 100 << u"127.0.0.1"_s << true << 503 << false;
        QTest::newRow("connections with a token from one address are kept")
            << 100 << 2 << u"127.0.0.1"_s << true << 503 << false;
    }
    void connectionsBeyondTheCaps()
    {
        QFETCH(int, maxConnections);
        QFETCH(int, maxPerAddress);
        QFETCH(QString, secondFrom);
        QFETCH(bool, firstTwoProven);
        m_upstream.setScript({ .fragments = { u"Hey"_s } });
        ServerConfig capped = config();
        capped.maxConnections = maxConnections;
        capped.maxConnectionsPerAddress = maxPerAddress;
        QVERIFY(serve(capped));

        RawClient first(m_server->port());
        QTRY_VERIFY(first.connected());
        RawClient second(m_server->port(), secondFrom);
        QTRY_VERIFY(second.connected());
        if (firstTwoProven) {
            for (RawClient *client : { &first, &second })
                client->socket.write(
                    "GET /api/v1/models HTTP/1.1\r\nHost: 127.0.0.1\r\nAuthorization: Bearer "
                    + token.toUtf8() + "\r\n\r\n");
            QTRY_VERIFY(first.status() == 200 && second.status() == 200);
        }
        // Written while connecting: a refusal may come, and the connection end, at once.
        RawClient third(m_server->port());
        third.socket.write(rawPost("Authorization: Bearer " + token.toUtf8() + "\r\n"));
        QTRY_VERIFY(third.closed());
        QTEST(third.status(), "status");
        QFETCH(bool, firstClosed);
        QTRY_COMPARE(first.closed(), firstClosed);
        QVERIFY(!second.closed());
    }

    void versionNeedsNoTokenAndServesTheConfiguredRelease()
    {
        ServerConfig released = config();
        released.releaseVersion = u"2.3.4"_s;
        released.releaseDownloadUrl = u"https://example.org/tessary.deb"_s;
        released.releaseNotes = u"Faster."_s;
        released.releaseMinimumVersion = u"2.0.0"_s;
        QVERIFY(serve(released));

        QNetworkReply *reply = m_network.get(
            QNetworkRequest(QUrl(u"http://127.0.0.1:%1/api/v1/version"_s.arg(m_server->port()))));
        QTRY_VERIFY(reply->isFinished());
        const QJsonObject answer = QJsonDocument::fromJson(reply->readAll()).object();
        reply->deleteLater();
        QCOMPARE(answer.value("success"_L1).toBool(), true);
        const QJsonObject data = answer.value("data"_L1).toObject();
        QCOMPARE(data.value("current_version"_L1).toString(), u"2.3.4"_s);
        QCOMPARE(data.value("download_url"_L1).toString(), u"https://example.org/tessary.deb"_s);
        QCOMPARE(data.value("release_notes"_L1).toString(), u"Faster."_s);
        QCOMPARE(data.value("minimum_supported_version"_L1).toString(), u"2.0.0"_s);
        QVERIFY(data.value("force_update"_L1).isBool());
    }
};

QTEST_GUILESS_MAIN(TestRewriteServer)
#include "TestRewriteServer.moc"
