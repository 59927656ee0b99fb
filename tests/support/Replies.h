#pragma once

#include "FixtureServer.h"

// A whole reply of one type, as model servers send their lists and errors.
inline FixtureReply jsonReply(int status, const QByteArray &body, const QByteArray &type = "application/json")
{
    FixtureReply reply;
    reply.status = status;
    reply.headers = { { "Content-Type", type } };
    reply.body = body;
    return reply;
}

// An event stream of one fragment event each, then the end marker.
inline FixtureReply eventStream(const QList<QByteArray> &fragments)
{
    QByteArray body;
    for (const QByteArray &fragment : fragments)
        body += R"(data: {"choices":[{"delta":{"content":")" + fragment + "\"}}]}\n\n";
    return jsonReply(200, body + "data: [DONE]\n\n", "text/event-stream");
}

// The version service's whole answer naming a release, downloadable at https://example.org/t-<version>.
inline QByteArray releaseRecord(const QString &version)
{
    return QStringLiteral(
        R"({"success":true,"data":{"current_version":"%1","download_url":"https://example.org/t-%1",)"
        R"("release_notes":"Faster rewrites.","force_update":false,"minimum_supported_version":"0.1.0"}})")
        .arg(version)
        .toUtf8();
}
