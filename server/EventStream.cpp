#include "EventStream.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::StringLiterals;

void EventStreamParser::feed(QByteArrayView bytes, const DataHandler &onData)
{
    for (const char c : bytes) {
        if (m_afterCarriageReturn) {
            m_afterCarriageReturn = false;
            if (c == '\n')
                continue; // the second half of CRLF
        }
        if (c == '\r') {
            m_afterCarriageReturn = true;
            takeLine(onData);
        } else if (c == '\n') {
            takeLine(onData);
        } else {
            m_line.append(c);
        }
    }
}

void EventStreamParser::finish(const DataHandler &onData)
{
    if (!m_line.isEmpty())
        takeLine(onData);
}

void EventStreamParser::takeLine(const DataHandler &onData)
{
    QByteArrayView line(m_line);
    if (line.startsWith("data:")) {
        line = line.sliced(5);
        if (line.startsWith(' '))
            line = line.sliced(1);
        m_sawData = true;
        onData(line);
    }
    m_line.clear();
}

namespace {

QString errorMessageOf(const QJsonValue &error)
{
    if (error.isString())
        return error.toString();
    const QString message = error.toObject().value("message"_L1).toString();
    return message.isEmpty() ? u"unknown error"_s : message;
}

QString contentOf(const QJsonObject &object, QLatin1StringView member)
{
    const QJsonArray choices = object.value("choices"_L1).toArray();
    if (choices.isEmpty())
        return {};
    return choices.first().toObject().value(member).toObject().value("content"_L1).toString();
}

} // namespace

UpstreamEvent interpretPayload(QByteArrayView payload)
{
    if (payload.trimmed() == "[DONE]")
        return { UpstreamEvent::Kind::Done, {} };
    const QJsonDocument document = QJsonDocument::fromJson(payload.toByteArray());
    if (!document.isObject())
        return {};
    const QJsonObject object = document.object();
    if (object.contains("error"_L1) && !object.value("error"_L1).isNull())
        return { UpstreamEvent::Kind::Error, errorMessageOf(object.value("error"_L1)) };
    const QString fragment = contentOf(object, "delta"_L1);
    if (fragment.isEmpty()) // role-only and finish deltas carry no text
        return {};
    return { UpstreamEvent::Kind::Fragment, fragment };
}

UpstreamEvent interpretWholeBody(const QByteArray &body)
{
    const QJsonDocument document = QJsonDocument::fromJson(body);
    if (!document.isObject())
        return {};
    const QJsonObject object = document.object();
    if (object.contains("error"_L1) && !object.value("error"_L1).isNull())
        return { UpstreamEvent::Kind::Error, errorMessageOf(object.value("error"_L1)) };
    // Some servers answer with the whole completion although a stream was asked for.
    const QString content = contentOf(object, "message"_L1);
    if (content.isEmpty())
        return {};
    return { UpstreamEvent::Kind::Fragment, content };
}

QByteArray fragmentEvent(const QString &fragment)
{
    // Written by hand: this runs for every fragment of every stream, and building and
    // serialising a JSON document each time costs several times more.
    const QByteArray text = fragment.toUtf8();
    QByteArray event;
    event.reserve(text.size() + 64);
    event.append(R"(data: {"choices":[{"delta":{"content":")");
    for (const char c : text) {
        switch (c) {
        case '"':
            event.append("\\\"");
            break;
        case '\\':
            event.append("\\\\");
            break;
        case '\n':
            event.append("\\n");
            break;
        case '\r':
            event.append("\\r");
            break;
        case '\t':
            event.append("\\t");
            break;
        default:
            if (static_cast<unsigned char>(c) < 0x20) {
                static constexpr char hex[] = "0123456789abcdef";
                event.append("\\u00").append(hex[(c >> 4) & 0xf]).append(hex[c & 0xf]);
            } else {
                event.append(c);
            }
        }
    }
    event.append("\"}}]}\n\n");
    return event;
}

QByteArray errorBody(const QString &type, const QString &message)
{
    const QJsonObject error { { "error"_L1,
        QJsonObject { { "type"_L1, type }, { "message"_L1, message } } } };
    return QJsonDocument(error).toJson(QJsonDocument::Compact);
}

QByteArray errorEvent(const QString &type, const QString &message)
{
    return "data: " + errorBody(type, message) + "\n\n";
}
