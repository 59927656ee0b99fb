#include "StreamParser.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLoggingCategory>

#include <cstring>

using namespace Qt::StringLiterals;

namespace {

Q_LOGGING_CATEGORY(lcStream, "tessary.service.stream")

QByteArrayView trimBlanks(QByteArrayView line)
{
    while (!line.isEmpty() && (line.front() == ' ' || line.front() == '\t'))
        line = line.sliced(1);
    while (!line.isEmpty() && (line.back() == ' ' || line.back() == '\t'))
        line.chop(1);
    return line;
}

bool endsWithBrace(const QByteArray &text)
{
    for (qsizetype i = text.size() - 1; i >= 0; --i) {
        const char c = text[i];
        if (c != ' ' && c != '\t' && c != '\r' && c != '\n')
            return c == '}';
    }
    return false;
}

std::pair<QString, QString> typeAndMessage(const QJsonObject &error)
{
    const QJsonValue type = error.value("type"_L1);
    const QJsonValue message = error.value("message"_L1);
    return { type.isString() ? type.toString() : u"unknown_error"_s,
        message.isString() ? message.toString() : u"Unknown error occurred"_s };
}

} // namespace

StreamParser::StreamParser(Listener &listener)
    : m_listener(listener)
{
}

void StreamParser::feed(QByteArrayView bytes)
{
    collectBody(bytes);
    tryWholeBodyError();

    const char *data = bytes.data();
    const qsizetype size = bytes.size();
    qsizetype start = 0;
    if (m_skipLineFeed && size > 0) {
        m_skipLineFeed = false;
        if (data[0] == '\n')
            start = 1;
    }
    // memchr for each kind of line end; the CR position is remembered, since most
    // streams have none and searching again for every line would scan to the end each time.
    qsizetype nextCr = -2;
    while (start < size) {
        if (nextCr != -1 && nextCr < start) {
            const void *cr = std::memchr(data + start, '\r', size_t(size - start));
            nextCr = cr ? static_cast<const char *>(cr) - data : -1;
        }
        const void *lf = std::memchr(data + start, '\n', size_t(size - start));
        qsizetype end = lf ? static_cast<const char *>(lf) - data : -1;
        if (nextCr != -1 && (end == -1 || nextCr < end))
            end = nextCr;
        if (end == -1)
            break;
        takeLine(bytes.sliced(start, end - start));
        if (data[end] == '\r') {
            if (end + 1 == size)
                m_skipLineFeed = true;
            else if (data[end + 1] == '\n')
                ++end;
        }
        start = end + 1;
    }

    if (start == size || m_discarding)
        return;
    if (m_buffer.size() + (size - start) > maxLineLength) {
        qCWarning(lcStream) << "dropping a line longer than" << maxLineLength << "bytes";
        m_discarding = true;
        m_buffer.clear();
        return;
    }
    m_buffer.append(bytes.sliced(start));
}

void StreamParser::finish()
{
    if (!m_discarding && !m_buffer.isEmpty())
        processLine(m_buffer);
    m_buffer.clear();
    if (!m_reportedError && m_tokens == 0)
        tryWholeBodyError();
}

void StreamParser::takeLine(QByteArrayView line)
{
    if (m_discarding) {
        m_discarding = false; // this line end closes the dropped line
        return;
    }
    if (m_buffer.isEmpty()) {
        processLine(line);
        return;
    }
    m_buffer.append(line);
    processLine(m_buffer);
    m_buffer.clear();
}

void StreamParser::processLine(QByteArrayView raw)
{
    const QByteArrayView line = trimBlanks(raw);
    m_listener.line(line);
    if (!line.startsWith("data:"))
        return;
    QByteArrayView payload = line.sliced(5);
    if (payload.startsWith(' '))
        payload = payload.sliced(1);
    if (payload == "[DONE]") {
        m_listener.endMarker();
        return;
    }

    // Qt's parser bounds nesting depth and rejects invalid UTF-8, so hostile payloads
    // end up here as "not an object" and are ignored.
    QJsonParseError status;
    QJsonDocument document
        = QJsonDocument::fromJson(QByteArray::fromRawData(payload.data(), payload.size()), &status);
    // A stray invalid byte costs one replacement character, not the whole fragment.
    if (status.error == QJsonParseError::IllegalUTF8String)
        document = QJsonDocument::fromJson(QString::fromUtf8(payload).toUtf8());
    if (!document.isObject())
        return;
    const QJsonObject object = document.object();
    m_listener.event(object);

    const QJsonValue error = object.value("error"_L1);
    if (error.isObject()) {
        const auto [type, message] = typeAndMessage(error.toObject());
        m_reportedError = true;
        m_listener.streamedError(type, message);
        return;
    }
    const QJsonArray choices = object.value("choices"_L1).toArray();
    if (choices.isEmpty())
        return;
    const QJsonValue content = choices.first().toObject().value("delta"_L1).toObject().value("content"_L1);
    if (!content.isString())
        return;
    ++m_tokens;
    m_listener.token(content.toString());
}

void StreamParser::collectBody(QByteArrayView bytes)
{
    if (!m_bodyMayBeError)
        return;
    const qsizetype from = std::max<qsizetype>(0, m_body.size() - 4);
    m_body.append(bytes);
    if (m_body.size() > maxErrorBodyLength || m_body.indexOf("data:", from) >= 0) {
        m_bodyMayBeError = false;
        m_body = QByteArray();
    }
}

bool StreamParser::tryWholeBodyError()
{
    // An object can only be complete when the text so far ends in a brace; checking
    // that first keeps a long body from being parsed again for every piece.
    if (!m_bodyMayBeError || m_nonStreamedErrorSeen || !endsWithBrace(m_body))
        return false;
    const QJsonDocument document = QJsonDocument::fromJson(m_body);
    const QJsonValue error = document.object().value("error"_L1);
    if (!error.isObject())
        return false;
    const auto [type, message] = typeAndMessage(error.toObject());
    m_nonStreamedErrorSeen = true;
    m_reportedError = true;
    m_listener.nonStreamedError(type, message);
    return true;
}
