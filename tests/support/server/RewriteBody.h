#pragma once

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QStringList>

// A rewrite request to tessary-server's /api/v1/chat/completions, as the desktop program sends it.
inline QByteArray rewriteBody(
    const QString &text, const QStringList &examples = {}, const QString &tone = QStringLiteral("natural"))
{
    using namespace Qt::StringLiterals;
    const QJsonObject body {
        { "stream"_L1, true },
        { "examples"_L1, QJsonArray::fromStringList(examples) },
        { "tone"_L1, tone },
        { "messages"_L1,
            QJsonArray { QJsonObject {
                { "role"_L1, "user"_L1 }, { "content"_L1, u"Rewrite this in my voice:\n\n"_s + text } } } },
    };
    return QJsonDocument(body).toJson(QJsonDocument::Compact);
}
