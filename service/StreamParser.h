#pragma once

#include "EventStreamReader.h"

#include <QByteArrayView>
#include <QString>

// Turns the bytes of a completion reply into what the program acts on: fragments, the
// end marker, and errors the service reports, in a stream or as the whole reply. Knows
// nothing of threads or logging: it tells a Listener, which decides what to log and
// where to deliver.
class StreamParser : private EventStreamReader::Listener
{
public:
    class Listener
    {
    public:
        virtual ~Listener() = default;
        virtual void line(QByteArrayView line) = 0; // every complete line, trimmed, also empty ones
        virtual void endMarker() = 0;
        virtual void event(QByteArrayView json) = 0; // event data that is a JSON object
        virtual void token(const QString &fragment) = 0;
        virtual void streamedError(const QString &type, const QString &message) = 0;
        virtual void nonStreamedError(const QString &type, const QString &message) = 0;
    };

    explicit StreamParser(
        Listener &listener, qsizetype maxLineLength = EventStreamReader::defaultMaxLineLength);

    void feed(QByteArrayView bytes);
    // The transfer ended cleanly: a reply that is one error object is recognised now,
    // however it was cut and whatever its line breaks; else the last line and event count.
    void finish();

    qsizetype tokenCount() const { return m_tokens; }
    bool reportedError() const { return m_reportedError; }

private:
    void line(QByteArrayView line) override { m_listener.line(line); }
    bool data(QByteArrayView payload) override;

    Listener &m_listener;
    EventStreamReader m_reader;
    bool m_reportedError = false;
    bool m_warnedLineTooLong = false;
    qsizetype m_tokens = 0;
};
