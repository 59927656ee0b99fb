#include "EventStream.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::StringLiterals;

namespace {

QString errorMessageOf(const QJsonValue &error)
{
    if (error.isString())
        return error.toString();
    const QString message = error.toObject().value("message"_L1).toString();
    return message.isEmpty() ? u"unknown error"_s : message;
}

QJsonDocument parseJson(QByteArrayView text)
{
    return QJsonDocument::fromJson(QByteArray::fromRawData(text.data(), text.size()));
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
    const QJsonDocument document = parseJson(payload);
    if (document.isNull())
        return { UpstreamEvent::Kind::NotJson, {} };
    const QJsonObject object = document.object();
    if (object.contains("error"_L1) && !object.value("error"_L1).isNull())
        return { UpstreamEvent::Kind::Error, errorMessageOf(object.value("error"_L1)) };
    const QString fragment = contentOf(object, "delta"_L1);
    if (fragment.isEmpty()) // role-only and finish deltas carry no text
        return {};
    return { UpstreamEvent::Kind::Fragment, fragment };
}

UpstreamEvent interpretWholeBody(QByteArrayView body)
{
    const QJsonDocument document = parseJson(body);
    if (document.isNull())
        return { UpstreamEvent::Kind::NotJson, {} };
    const QJsonObject object = document.object();
    if (object.contains("error"_L1) && !object.value("error"_L1).isNull())
        return { UpstreamEvent::Kind::Error, errorMessageOf(object.value("error"_L1)) };
    // Some servers answer with the whole completion although a stream was asked for.
    const QString content = contentOf(object, "message"_L1);
    if (content.isEmpty())
        return {};
    return { UpstreamEvent::Kind::Fragment, content };
}

UpstreamReplyReader::UpstreamReplyReader(qsizetype maxLineLength)
    : m_reader(*this, maxLineLength)
{
}

void UpstreamReplyReader::feed(QByteArrayView bytes, const EventHandler &onEvent)
{
    m_onEvent = &onEvent;
    m_reader.feed(bytes);
    m_onEvent = nullptr;
}

void UpstreamReplyReader::finish(const EventHandler &onEvent)
{
    // Read once, at the end, whatever the cuts and line breaks: reading the body so far
    // at every read would cost the square of its length.
    if (const QByteArrayView body = m_reader.plainBody(); !body.isEmpty()) {
        const UpstreamEvent whole = interpretWholeBody(body);
        if (whole.kind == UpstreamEvent::Kind::Error || whole.kind == UpstreamEvent::Kind::Fragment) {
            onEvent(whole);
            return;
        }
    }
    m_onEvent = &onEvent;
    m_reader.finish();
    m_onEvent = nullptr;
}

bool UpstreamReplyReader::data(QByteArrayView payload)
{
    const UpstreamEvent event = interpretPayload(payload);
    if (event.kind == UpstreamEvent::Kind::NotJson)
        return false; // perhaps the first line of an event that spans several
    if (event.kind != UpstreamEvent::Kind::Ignored)
        (*m_onEvent)(event);
    return true;
}

QByteArray fragmentEvent(const QString &fragment)
{
    // Written by hand: this runs for every fragment of every stream, and building and
    // serialising a JSON document each time costs several times more.
    const QByteArray text = fragment.toUtf8();
    QByteArray event;
    event.reserve(text.size() + 64);
    event.append(R"(data: {"choices":[{"delta":{"content":")");
    for (qsizetype i = 0; i < text.size(); ++i) {
        const char c = text.at(i);
        // Qt's JSON reader drops a raw U+FEFF inside a string; escaped, it arrives.
        if (c == '\xef' && text.sliced(i).startsWith("\xef\xbb\xbf")) {
            event.append("\\ufeff");
            i += 2;
            continue;
        }
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
