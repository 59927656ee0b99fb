#pragma once

#include "EventStreamReader.h"
#include "ThinkingFilter.h"

#include <QByteArrayView>
#include <QString>

#include <functional>

// What a model server's reply says, in stream order.
struct ReplyEvent
{
    enum class Kind { Text, Reasoning, Error, Done };
    Kind kind = Kind::Text;
    QString text; // the answer's next piece, the model's thinking, or the error's message
};

// Reads the reply of an OpenAI-compatible model server to a chat completion, whatever
// its form and HTTP status: streamed deltas, one whole completion although a stream was
// asked for, and errors given as objects or as strings, in an event or as the whole
// body. Thinking (a `reasoning_content` or `reasoning` member, or an inline block at the
// start of the content) is told apart from the answer. After an error or the end
// marker, nothing more is read. Both programs read model servers with it.
class ReplyInterpreter : private EventStreamReader::Listener
{
public:
    using Handler = std::function<void(const ReplyEvent &)>;
    // How the reply ended, once finish() has run.
    enum class Ending { Answered, ReportedError, NoText, UnclosedThinking };

    explicit ReplyInterpreter(qsizetype maxLineLength = EventStreamReader::defaultMaxLineLength);

    void feed(QByteArrayView bytes, const Handler &onEvent);
    // The transfer ended cleanly: a body without events is read whole, what was held back
    // is let go, and the ending is known.
    void finish(const Handler &onEvent);

    Ending ending() const;
    // Reading is over: an error or the end marker came.
    bool stopped() const { return m_stopped; }
    // A line, or the data of one event, passed the bound: it was dropped.
    bool lineTooLong() const { return m_reader.error() == EventStreamReader::Error::LineTooLong; }
    // The user-facing words of each ending that is a failure of the model's.
    static QString noTextMessage();
    static QString unclosedThinkingMessage();

private:
    bool data(QByteArrayView payload) override;
    // A parsed event or body; false when it is not JSON.
    bool interpret(QByteArrayView json, bool wholeBody);
    void content(const QString &text);
    void report(ReplyEvent::Kind kind, const QString &text);

    EventStreamReader m_reader;
    ThinkingFilter m_thinking;
    const Handler *m_onEvent = nullptr; // while feed() or finish() runs
    bool m_stopped = false;
    bool m_error = false;
    bool m_answered = false;
};
