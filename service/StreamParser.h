#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QString>

// Turns the bytes of a completion reply into events, however the network cut them.
// Lines end at LF, CR or CRLF; lines are kept as bytes until complete, so a character
// split across two reads is decoded whole. Knows nothing of threads or logging: it
// tells a Listener, which decides what to log and where to deliver.
class StreamParser
{
public:
    class Listener
    {
    public:
        virtual ~Listener() = default;
        virtual void line(QByteArrayView line) = 0; // every complete line, trimmed, also empty ones
        virtual void endMarker() = 0;
        virtual void event(QByteArrayView json) = 0; // a "data:" payload that is a JSON object
        virtual void token(const QString &fragment) = 0;
        virtual void streamedError(const QString &type, const QString &message) = 0;
        virtual void nonStreamedError(const QString &type, const QString &message) = 0;
    };

    // Longer lines cannot be a sensible event; they are dropped up to their line end so
    // a hostile reply cannot grow the buffer without bound.
    static constexpr qsizetype maxLineLength = 16 * 1024 * 1024;
    // A whole-reply error object is small; a longer body without events is not one.
    static constexpr qsizetype maxErrorBodyLength = 1024 * 1024;

    explicit StreamParser(Listener &listener);

    void feed(QByteArrayView bytes);
    // The transfer ended cleanly: handles a last line without line end, and an error
    // object whose line breaks kept it from being recognised while it arrived.
    void finish();

    qsizetype tokenCount() const { return m_tokens; }
    bool reportedError() const { return m_reportedError; }

private:
    void takeLine(QByteArrayView line);
    void processLine(QByteArrayView line);
    void collectBody(QByteArrayView bytes);
    bool tryWholeBodyError();

    Listener &m_listener;
    QByteArray m_buffer; // bytes of an incomplete line
    bool m_skipLineFeed = false; // the last byte seen was CR: an LF right after it ends nothing
    bool m_discarding = false; // inside an over-long line, dropping up to its end
    QByteArray m_body; // the reply so far, while it may still be one error object
    bool m_bodyMayBeError = true;
    bool m_nonStreamedErrorSeen = false;
    bool m_reportedError = false;
    qsizetype m_tokens = 0;
};
