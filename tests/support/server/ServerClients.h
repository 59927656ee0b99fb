#pragma once

// Clients of tessary-server for the tests: one that reads a stream's events the way the
// desktop program does, and one speaking raw HTTP.

#include "server/RewriteBody.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkReply>
#include <QPointer>
#include <QTcpSocket>

#include <sys/socket.h>

// Collects the reply as it arrives and reads its events the way the desktop program does.
class StreamReader : public QObject
{
public:
    explicit StreamReader(QNetworkReply *reply)
        : reply(reply)
    {
        connect(reply, &QNetworkReply::readyRead, this, [this] { body += this->reply->readAll(); });
        connect(reply, &QNetworkReply::finished, this, [this] {
            body += this->reply->readAll();
            finished = true;
        });
    }

    QPointer<QNetworkReply> reply;
    QByteArray body;
    bool finished = false;

    int status() const { return reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt(); }

    // Each whole event line so far: a fragment's text, "error:" and the message, or "done".
    QStringList events() const
    {
        QStringList events;
        using namespace Qt::StringLiterals;
        for (const QByteArray &line : body.first(body.lastIndexOf('\n') + 1).split('\n')) {
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
};

// A client speaking raw HTTP, for what a well-behaved HTTP library would never send.
class RawClient : public QObject
{
public:
    explicit RawClient(int port, const QString &from = QStringLiteral("127.0.0.1"))
    {
        socket.bind(QHostAddress(from));
        connect(&socket, &QTcpSocket::readyRead, this, [this] { received += socket.readAll(); });
        socket.connectToHost(QHostAddress(QStringLiteral("127.0.0.1")), quint16(port));
    }

    bool connected() const { return socket.state() == QAbstractSocket::ConnectedState; }
    bool closed() const { return socket.state() == QAbstractSocket::UnconnectedState; }
    // The status of the reply, 0 before (or without) one.
    int status() const { return received.startsWith("HTTP/1.1 ") ? received.mid(9, 3).toInt() : 0; }
    // Ends our side of the connection once everything is sent, as `curl -T` or a shell
    // pipe would; the reply must still come.
    void halfClose() { ::shutdown(int(socket.socketDescriptor()), SHUT_WR); }

    QTcpSocket socket;
    QByteArray received;
};

inline QByteArray chunked(const QByteArray &body)
{
    QByteArray framed;
    for (qsizetype at = 0; at < body.size(); at += 1000) {
        const QByteArray piece = body.mid(at, 1000);
        framed += QByteArray::number(piece.size(), 16) + "\r\n" + piece + "\r\n";
    }
    return framed + "0\r\n\r\n";
}

// A rewrite request as bytes on the wire; `headers` end in CRLF each, `body` is framed by
// its length unless `headers` frame it otherwise.
inline QByteArray rawPost(
    const QByteArray &headers, const QByteArray &body = rewriteBody(QStringLiteral("text")))
{
    const QByteArray length = headers.contains("Transfer-Encoding") || headers.contains("Content-Length")
        ? QByteArray()
        : "Content-Length: " + QByteArray::number(body.size()) + "\r\n";
    return "POST /api/v1/chat/completions HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\n"
           "Content-Type: application/json\r\n"
        + headers + length + "\r\n" + body;
}
