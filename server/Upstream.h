#pragma once

#include <QByteArray>
#include <QString>

#include <functional>
#include <memory>

namespace boost::asio {
class io_context;
}

struct UpstreamOutcome
{
    enum class Result { Finished, Failed, Cancelled };
    Result result = Result::Failed;
    QString message; // for the user, when Failed
    int fragments = 0;
    // Refused the connection or answered 5xx, before any text: another upstream may answer.
    bool tryAnother = false;
};

// One streamed /chat/completions request to the OpenAI-compatible upstream, run on the
// server's event loop without a thread of its own.
class UpstreamCall
{
public:
    struct Settings
    {
        QString baseUrl;
        QString key;
        int timeoutSeconds = 300;
        // What the upstream may send: one event-stream line, and the reply's head.
        int maxLineBytes = 1024 * 1024;
        int maxHeaderBytes = 64 * 1024;
    };
    // Gets each piece of text as it arrives; returning false (the client has gone) drops
    // the upstream request at once.
    using FragmentHandler = std::function<bool(const QString &)>;
    using DoneHandler = std::function<void(const UpstreamOutcome &)>;

    // `onDone` runs exactly once, on `io`'s thread, after start() has returned.
    static std::shared_ptr<UpstreamCall> start(boost::asio::io_context &io, Settings settings,
        const QByteArray &body, FragmentHandler onFragment, DoneHandler onDone);

    // On `io`'s thread: drop the upstream connection now; onDone reports Cancelled.
    void cancel();

    struct State;

private:
    explicit UpstreamCall(std::shared_ptr<State> state);
    std::shared_ptr<State> m_state;
};

// The first thing to check when the upstream URL is unusable; empty when it is fine.
QString upstreamUrlProblem(const QString &baseUrl);

// The upstream URL as messages and logs may show it: without user name, password or
// query string, which often carry a key.
QString shownUpstreamUrl(const QString &baseUrl);
