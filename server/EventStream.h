#pragma once

#include <QByteArray>
#include <QByteArrayView>
#include <QString>

#include <functional>

// Cuts a server-sent-event stream into the payloads of its "data:" lines, whatever the
// upstream's line ends (LF, CRLF, CR) and however its bytes are split across reads.
class EventStreamParser
{
public:
    using DataHandler = std::function<void(QByteArrayView payload)>;

    void feed(QByteArrayView bytes, const DataHandler &onData);
    // The stream ended: a last line without a line end still counts.
    void finish(const DataHandler &onData);
    bool sawDataLine() const { return m_sawData; }

private:
    void takeLine(const DataHandler &onData);

    QByteArray m_line;
    bool m_afterCarriageReturn = false;
    bool m_sawData = false;
};

// What one upstream payload (or a whole non-streamed reply body) means to us.
struct UpstreamEvent
{
    enum class Kind { Ignored, Fragment, Done, Error };
    Kind kind = Kind::Ignored;
    QString text; // the fragment, or the upstream's error message
};

UpstreamEvent interpretPayload(QByteArrayView payload);
// A reply that is not an event stream: an error object, or a complete (non-streamed)
// chat completion, whose message then counts as one fragment.
UpstreamEvent interpretWholeBody(const QByteArray &body);

// The events Tessary reads, one per line pair.
QByteArray fragmentEvent(const QString &fragment);
QByteArray errorEvent(const QString &type, const QString &message);
inline constexpr QByteArrayView doneEvent = "data: [DONE]\n\n";
// The non-streamed error object of an HTTP error reply.
QByteArray errorBody(const QString &type, const QString &message);
