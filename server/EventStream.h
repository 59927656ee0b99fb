#pragma once

#include "EventStreamReader.h"

#include <QByteArray>
#include <QByteArrayView>
#include <QString>

#include <functional>

// What one upstream payload (or a whole non-streamed reply body) means to us.
struct UpstreamEvent
{
    enum class Kind { Ignored, Fragment, Done, Error, NotJson };
    Kind kind = Kind::Ignored;
    QString text; // the fragment, or the upstream's error message
};

UpstreamEvent interpretPayload(QByteArrayView payload);
// A reply that is not an event stream: an error object, or a complete (non-streamed)
// chat completion, whose message then counts as one fragment.
UpstreamEvent interpretWholeBody(QByteArrayView body);

// An upstream's reply, read as it arrives: what its events mean, in stream order.
class UpstreamReplyReader : private EventStreamReader::Listener
{
public:
    using EventHandler = std::function<void(const UpstreamEvent &)>;

    explicit UpstreamReplyReader(qsizetype maxLineLength);

    // `onEvent` gets the fragments, the end marker and errors found in these bytes.
    void feed(QByteArrayView bytes, const EventHandler &onEvent);
    // The transfer ended: a reply that held no event is read whole, as one JSON reply;
    // otherwise its last line and event count.
    void finish(const EventHandler &onEvent);
    // A line, or the data of one event, passed the bound: it was dropped.
    bool lineTooLong() const { return m_reader.error() == EventStreamReader::Error::LineTooLong; }

private:
    bool data(QByteArrayView payload) override;

    EventStreamReader m_reader;
    const EventHandler *m_onEvent = nullptr; // while feed() or finish() runs
};

// The events Tessary reads, one per line pair.
QByteArray fragmentEvent(const QString &fragment);
QByteArray errorEvent(const QString &type, const QString &message);
inline constexpr QByteArrayView doneEvent = "data: [DONE]\n\n";
// The non-streamed error object of an HTTP error reply.
QByteArray errorBody(const QString &type, const QString &message);
