#pragma once

#include <QByteArray>
#include <QByteArrayView>

// Reads an event stream (text/event-stream) as it arrives, however the network cuts it:
// a byte order mark, LF, CR and CRLF line ends, comments, fields with or without the
// space after the colon, the data lines of one event joined with line feeds, and a last
// line and event that the end of the stream leaves unfinished. Lines are kept as bytes
// until they are complete, so a character split across reads arrives whole; bytes that
// are not UTF-8 reach the listener as U+FFFD. Blanks around a line are trimmed first, as
// services that indent their lines expect.
//
// Knows nothing of threads, logging or what the data means: it tells a Listener.
class EventStreamReader
{
public:
    class Listener
    {
    public:
        virtual ~Listener() = default;
        // Every complete line, blank ones too, trimmed and without its line end.
        virtual void line(QByteArrayView) { }
        // The data of an event. Answers whether it is complete by itself (a JSON document,
        // or the end marker "[DONE]"): a data line that is, is taken at once, so a fragment never
        // waits for the blank line, and servers that leave out the blank lines between
        // events are read line by line. A line that is not stays, and the event's next
        // data lines join it; the event is offered again, whole, at its end.
        virtual bool data(QByteArrayView data) = 0;
    };

    enum class Error { None, LineTooLong };

    // Longer lines, and events with more data, are no sensible event: they are dropped, so
    // a hostile or broken reply cannot grow the reader's memory without bound.
    static constexpr qsizetype defaultMaxLineLength = 16 * 1024 * 1024;
    // A reply without events worth reading whole (an error object) is small.
    static constexpr qsizetype maxPlainBodyLength = 1024 * 1024;

    explicit EventStreamReader(Listener &listener, qsizetype maxLineLength = defaultMaxLineLength);

    void feed(QByteArrayView bytes);
    // The stream ended: its last line and event count, even without a line end.
    void finish();

    // LineTooLong from the first line or event over the bound on; the reading goes on.
    Error error() const { return m_error; }
    // The whole reply so far, while it has held no data line and is at most
    // maxPlainBodyLength bytes; otherwise empty. A service that refuses a request answers
    // with one JSON object instead of a stream, whatever its line breaks.
    QByteArrayView plainBody() const { return m_body; }

private:
    void feedLines(QByteArrayView bytes);
    void takeLine(QByteArrayView line);
    void processLine(QByteArrayView line);
    void takeData(QByteArrayView value);
    void endEvent();
    bool offer(QByteArrayView data);

    Listener &m_listener;
    qsizetype m_maxLineLength;
    Error m_error = Error::None;
    int m_byteOrderMarkSeen = 0; // bytes of it matched at the start of the stream
    bool m_atStart = true;
    QByteArray m_buffer; // bytes of an incomplete line
    bool m_skipLineFeed = false; // the last byte seen was CR: an LF right after it ends nothing
    bool m_discarding = false; // inside an over-long line, dropping up to its end
    QByteArray m_pending; // data lines of the current event that were not complete by themselves
    int m_pendingLines = 0;
    bool m_droppingEvent = false; // the event's data passed the bound: the rest of it goes too
    QByteArray m_body;
    bool m_keepBody = true;
};
