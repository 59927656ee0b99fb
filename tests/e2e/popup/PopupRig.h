#pragma once

#include "AtspiClient.h"
#include "FixtureServer.h"
#include "TessaryProcess.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QTest>

#include <memory>

// What the popup's end-to-end tests share: the fixture service streaming a rewrite, the
// real program started against it and asked over the session bus, and its buttons
// pressed over the accessibility bus.
namespace PopupRig {

// An event stream of the text: in one event, or in pieces of pieceLength characters
// that the server sends apart.
inline FixtureReply streamed(const QString &text, qsizetype pieceLength = 0)
{
    const qsizetype length = pieceLength > 0 ? pieceLength : text.size();
    FixtureReply reply;
    reply.headers = { { "Content-Type", "text/event-stream" } };
    for (qsizetype at = 0; at < text.size(); at += length) {
        const QJsonObject delta { { QStringLiteral("content"), text.mid(at, length) } };
        const QJsonObject event { { QStringLiteral("choices"),
            QJsonArray { QJsonObject { { QStringLiteral("delta"), delta } } } } };
        reply.body += "data: " + QJsonDocument(event).toJson(QJsonDocument::Compact) + "\n\n";
        if (pieceLength > 0)
            reply.splitAt.append(reply.body.size());
    }
    reply.body += "data: [DONE]\n\n";
    return reply;
}

inline QString toneOf(const FixtureRequest &request)
{
    return QJsonDocument::fromJson(request.body).object().value(QStringLiteral("tone")).toString();
}

// A call of the program's bus entry, as a desktop shortcut or a script makes it.
inline QDBusMessage busCall(const QString &method, const QVariantList &arguments = {})
{
    const QString name = QStringLiteral("app.tessary.Tessary");
    QDBusMessage call
        = QDBusMessage::createMethodCall(name, QStringLiteral("/app/tessary/Tessary"), name, method);
    call.setArguments(arguments);
    return call;
}

// Listens where the program under test sends its rewrites, and joins the accessibility bus.
inline bool prepare(FixtureServer &server, FixtureServer::Handler rewrite, AtspiClient &atspi)
{
    if (!server.listen(quint16(qEnvironmentVariableIntValue("TESSARY_E2E_API_PORT"))))
        return false;
    server.route("/api/v1/chat/completions", std::move(rewrite));
    return atspi.connect();
}

// Starts the program with these settings; true once it answers on the session bus.
inline bool start(
    std::unique_ptr<TessaryProcess> &program, const QByteArray &settings, const QStringList &environment = {})
{
    program = std::make_unique<TessaryProcess>(settings, environment);
    return program->start()
        && QTest::qWaitFor(
            [] {
                return QDBusConnection::sessionBus().interface()->isServiceRegistered(
                    QStringLiteral("app.tessary.Tessary"));
            },
            10000);
}

// Presses the button as soon as it is there and enabled, exactly once.
inline bool pressOnce(AtspiClient &atspi, const QString &name)
{
    return QTest::qWaitFor([&] { return atspi.press(name); }, 10000);
}

} // namespace PopupRig
