#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QString>

// The events Tessary reads, one per line pair.
QByteArray fragmentEvent(const QString &fragment);
QByteArray errorEvent(const QString &type, const QString &message);
inline constexpr QByteArrayView doneEvent = "data: [DONE]\n\n";
// The non-streamed error object of an HTTP error reply.
QByteArray errorBody(const QString &type, const QString &message);
