#include "StreamParser.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLoggingCategory>

using namespace Qt::StringLiterals;

namespace {

Q_LOGGING_CATEGORY(lcStream, "tessary.service.stream")

std::pair<QString, QString> typeAndMessage(const QJsonObject &error)
{
    const QJsonValue type = error.value("type"_L1);
    const QJsonValue message = error.value("message"_L1);
    return { type.isString() ? type.toString() : u"unknown_error"_s,
        message.isString() ? message.toString() : u"Unknown error occurred"_s };
}

QJsonDocument parseJson(QByteArrayView text)
{
    return QJsonDocument::fromJson(QByteArray::fromRawData(text.data(), text.size()));
}

} // namespace

StreamParser::StreamParser(Listener &listener, qsizetype maxLineLength)
    : m_listener(listener)
    , m_reader(*this, maxLineLength)
{
}

void StreamParser::feed(QByteArrayView bytes)
{
    m_reader.feed(bytes);
    if (m_reader.error() == EventStreamReader::Error::LineTooLong && !m_warnedLineTooLong) {
        m_warnedLineTooLong = true;
        qCWarning(lcStream) << "dropped a line longer than the reader's bound";
    }
}

void StreamParser::finish()
{
    // Parsed once, at the end: parsing the body so far at every read would make a long
    // body cost the square of its length.
    const QByteArrayView body = m_reader.plainBody();
    if (!body.isEmpty()) {
        const QJsonValue error = parseJson(body).object().value("error"_L1);
        if (error.isObject()) {
            const auto [type, message] = typeAndMessage(error.toObject());
            m_reportedError = true;
            m_listener.nonStreamedError(type, message);
            return;
        }
    }
    m_reader.finish();
}

bool StreamParser::data(QByteArrayView payload)
{
    if (payload == "[DONE]") {
        m_listener.endMarker();
        return true;
    }
    const QJsonDocument document = parseJson(payload);
    if (document.isNull())
        return false; // perhaps the first line of an event that spans several
    if (!document.isObject())
        return true;
    m_listener.event(payload);
    const QJsonObject object = document.object();
    const QJsonValue error = object.value("error"_L1);
    if (error.isObject()) {
        const auto [type, message] = typeAndMessage(error.toObject());
        m_reportedError = true;
        m_listener.streamedError(type, message);
        return true;
    }
    const QJsonValue content = object.value("choices"_L1)
                                   .toArray()
                                   .at(0)
                                   .toObject()
                                   .value("delta"_L1)
                                   .toObject()
                                   .value("content"_L1);
    if (content.isString()) {
        ++m_tokens;
        m_listener.token(content.toString());
    }
    return true;
}
