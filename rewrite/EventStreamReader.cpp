#include "EventStreamReader.h"

#include <QString>

#include <cstring>

namespace {

constexpr char byteOrderMark[] = "\xEF\xBB\xBF";

QByteArrayView trimBlanks(QByteArrayView line)
{
    while (!line.isEmpty() && (line.front() == ' ' || line.front() == '\t'))
        line = line.sliced(1);
    while (!line.isEmpty() && (line.back() == ' ' || line.back() == '\t'))
        line.chop(1);
    return line;
}

} // namespace

EventStreamReader::EventStreamReader(Listener &listener, qsizetype maxLineLength)
    : m_listener(listener)
    , m_maxLineLength(maxLineLength)
{
}

void EventStreamReader::feed(QByteArrayView bytes)
{
    if (m_atStart) {
        // The mark may arrive a byte at a time; what matched of it is text when the rest differs.
        while (!bytes.isEmpty() && m_byteOrderMarkSeen < 3
            && bytes.front() == byteOrderMark[m_byteOrderMarkSeen]) {
            ++m_byteOrderMarkSeen;
            bytes = bytes.sliced(1);
        }
        if (bytes.isEmpty() && m_byteOrderMarkSeen < 3)
            return;
        m_atStart = false;
        if (m_byteOrderMarkSeen < 3)
            feedLines(QByteArrayView(byteOrderMark, m_byteOrderMarkSeen));
    }
    feedLines(bytes);
}

void EventStreamReader::finish()
{
    if (m_atStart) {
        m_atStart = false;
        feedLines(QByteArrayView(byteOrderMark, m_byteOrderMarkSeen));
    }
    if (!m_discarding && !m_buffer.isEmpty())
        processLine(m_buffer);
    m_buffer.clear();
    m_discarding = false;
    endEvent();
}

void EventStreamReader::feedLines(QByteArrayView bytes)
{
    if (m_keepBody) {
        if (m_body.size() + bytes.size() > maxPlainBodyLength) {
            m_keepBody = false;
            m_body = QByteArray();
        } else {
            m_body.append(bytes);
        }
    }

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

    if (start < size && !m_discarding) {
        if (m_buffer.size() + (size - start) > m_maxLineLength) {
            m_error = Error::LineTooLong;
            m_discarding = true;
            m_buffer = QByteArray();
        } else {
            m_buffer.append(bytes.sliced(start));
        }
    }
}

void EventStreamReader::takeLine(QByteArrayView line)
{
    if (m_discarding) {
        m_discarding = false; // this line end closes the dropped line
        return;
    }
    if (m_buffer.isEmpty()) {
        if (line.size() > m_maxLineLength) {
            m_error = Error::LineTooLong;
            return;
        }
        processLine(line);
        return;
    }
    if (m_buffer.size() + line.size() > m_maxLineLength) {
        m_error = Error::LineTooLong;
    } else {
        m_buffer.append(line);
        processLine(m_buffer);
    }
    m_buffer.clear();
}

void EventStreamReader::processLine(QByteArrayView raw)
{
    const QByteArrayView line = trimBlanks(raw);
    m_listener.line(line);
    if (line.isEmpty()) {
        endEvent();
        return;
    }
    if (line.front() == ':')
        return; // a comment, often sent to keep an idle connection open
    const qsizetype colon = line.indexOf(':');
    if (colon < 0) {
        if (line == "data")
            takeData({});
        return;
    }
    // "event", "id" and "retry" name an event, let a client resume a stream and set its
    // reconnection delay: one request's reply needs none of them.
    if (line.first(colon) != "data")
        return;
    QByteArrayView value = line.sliced(colon + 1);
    if (value.startsWith(' '))
        value = value.sliced(1);
    takeData(value);
}

void EventStreamReader::takeData(QByteArrayView value)
{
    if (m_keepBody) {
        m_keepBody = false;
        m_body = QByteArray();
    }
    if (m_droppingEvent || (m_pendingLines == 0 && offer(value)))
        return;
    // The event's data is bounded as a line is: short lines without a blank line
    // between them must not add up without bound either.
    if (m_pending.size() + 1 + value.size() > m_maxLineLength) {
        m_error = Error::LineTooLong;
        m_droppingEvent = true;
        m_pending = QByteArray();
        m_pendingLines = 0;
        return;
    }
    if (m_pendingLines > 0)
        m_pending.append('\n');
    m_pending.append(value);
    ++m_pendingLines;
}

void EventStreamReader::endEvent()
{
    // A single pending line was offered when it came.
    if (m_pendingLines > 1)
        offer(m_pending);
    m_pending.clear();
    m_pendingLines = 0;
    m_droppingEvent = false;
}

bool EventStreamReader::offer(QByteArrayView data)
{
    if (data.isValidUtf8())
        return m_listener.data(data);
    return m_listener.data(QString::fromUtf8(data).toUtf8());
}
