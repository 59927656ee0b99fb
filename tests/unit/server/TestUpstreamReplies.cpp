// Faults: tessary-server reading a model server's reply otherwise than the desktop program does
// (a shape misread, thinking relayed as text, an empty reply ending as a finished rewrite), and
// the request's instruction lost or sent where none was asked for.

#include "ReplyShapes.h"
#include "RewriteServer.h"
#include "server/FixtureUpstream.h"
#include "server/RewriteBody.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QTest>

using namespace Qt::StringLiterals;

class TestUpstreamReplies : public QObject
{
    Q_OBJECT

private:
    FixtureUpstream m_upstream;
    std::unique_ptr<RewriteServer> m_server;
    QNetworkAccessManager m_network;

    // What the client reads: each fragment's text, "error:" and the message, or "done";
    // empty with the status when the request is refused.
    QStringList post(const QByteArray &body, int *status = nullptr)
    {
        QNetworkRequest request(QUrl(u"http://127.0.0.1:%1/api/v1/chat/completions"_s.arg(m_server->port())));
        request.setHeader(QNetworkRequest::ContentTypeHeader, u"application/json"_s);
        request.setRawHeader("Authorization", "Bearer client");
        std::unique_ptr<QNetworkReply> reply(m_network.post(request, body));
        QByteArray received;
        connect(reply.get(), &QNetworkReply::readyRead, this, [&] { received += reply->readAll(); });
        if (!QTest::qWaitFor([&] { return reply->isFinished(); }, 20000))
            return { u"never finished"_s };
        received += reply->readAll();
        if (status)
            *status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
        QStringList events;
        for (const QByteArray &line : received.split('\n')) {
            if (!line.startsWith("data: "))
                continue;
            const QJsonObject event = QJsonDocument::fromJson(line.sliced(6)).object();
            events << (line == "data: [DONE]" ? u"done"_s
                    : event.contains("error"_L1)
                    ? u"error:"_s + event["error"_L1]["message"_L1].toString()
                    : event["choices"_L1][0]["delta"_L1]["content"_L1].toString());
        }
        return events;
    }

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY(m_upstream.start());
        ServerConfig config;
        config.port = 0;
        config.clientToken = u"client"_s;
        config.upstreamUrl = m_upstream.baseUrl();
        config.model = u"tiny"_s;
        m_server = std::make_unique<RewriteServer>(config);
        QVERIFY(m_server->start());
    }

    // The table the desktop program reads too, sent a byte per write: the client gets the
    // answer only, and an ending that is never a finished empty rewrite.
    void replyShapes_data() { ReplyShapes::addRows(); }
    void replyShapes()
    {
        QFETCH(int, status);
        QFETCH(QByteArray, wire);
        QFETCH(QString, answer);
        QFETCH(QString, ending);
        for (const int pieceSize : { 64 * 1024, 1 }) {
            m_upstream.setScript({ .status = status, .rawStream = wire, .pieceSize = pieceSize });
            const QStringList events = post(rewriteBody(u"text"_s));
            QVERIFY2(!events.isEmpty(), "no events");
            QCOMPARE(events.first(events.size() - 1).join(QString()), answer);
            const QString last = events.last();
            const QString expected = ending == "answer"_L1 ? u"done"_s
                : ending == "notext"_L1                    ? u"returned no text"_s
                : ending == "thinking"_L1                  ? u"still thinking"_s
                : ending == "status"_L1                    ? u"answered HTTP %1"_s.arg(status)
                                                           : ending.sliced(6);
            QVERIFY2(ending == "answer"_L1 ? last == expected
                                           : last.startsWith(u"error:"_s) && last.contains(expected),
                qPrintable(events.join(u" | "_s)));
        }
    }

    // An instruction reaches the prompt; a request without one makes the same prompt as
    // before; one that is not a string is refused.
    void instruction_data()
    {
        QTest::addColumn<QJsonValue>("instruction");
        QTest::addColumn<int>("status");
        QTest::newRow("none") << QJsonValue(QJsonValue::Undefined) << 200;
        QTest::newRow("null") << QJsonValue(QJsonValue::Null) << 200;
        QTest::newRow("given") << QJsonValue(u"make it shorter, in German"_s) << 200;
        QTest::newRow("not a string") << QJsonValue(3) << 400;
    }
    void instruction()
    {
        QFETCH(QJsonValue, instruction);
        QFETCH(int, status);
        m_upstream.setScript({ .fragments = { u"ok"_s } });
        QJsonObject body = QJsonDocument::fromJson(rewriteBody(u"text"_s)).object();
        if (!instruction.isUndefined())
            body.insert("instruction"_L1, instruction);
        const qsizetype before = m_upstream.requests().size();
        int answered = 0;
        const QStringList events = post(QJsonDocument(body).toJson(QJsonDocument::Compact), &answered);
        QCOMPARE(answered, status);
        if (status != 200) {
            QCOMPARE(m_upstream.requests().size(), before);
            return;
        }
        QCOMPARE(events, (QStringList { u"ok"_s, u"done"_s }));
        const QString system
            = m_upstream.requests().last().body.value("messages"_L1)[0]["content"_L1].toString();
        QCOMPARE(system.contains(u"make it shorter, in German"_s), instruction.isString());
        QCOMPARE(system.contains(u"<instruction>"_s), instruction.isString());
    }
};

QTEST_GUILESS_MAIN(TestUpstreamReplies)
#include "TestUpstreamReplies.moc"
