#pragma once

#include <QByteArray>
#include <QString>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>

namespace httplib {
class Client;
}

struct UpstreamOutcome
{
    enum class Result { Finished, Failed, Cancelled };
    Result result = Result::Failed;
    QString message; // for the user, when Failed
    int fragments = 0;
};

// One streamed /chat/completions request to the OpenAI-compatible upstream.
class UpstreamCall
{
public:
    struct Settings
    {
        QString baseUrl;
        QString key;
        int timeoutSeconds = 300;
    };

    explicit UpstreamCall(Settings settings);
    ~UpstreamCall();

    // Blocks until the upstream has answered in full, failed, or was cancelled.
    // `onFragment` gets each piece of text as it arrives; when it returns false (the
    // client has gone) the upstream request is dropped at once.
    UpstreamOutcome run(const QByteArray &body, const std::function<bool(const QString &)> &onFragment);

    // From any thread: drop the upstream connection now.
    void cancel();

private:
    Settings m_settings;
    std::atomic<bool> m_cancelled { false };
    std::mutex m_clientMutex;
    httplib::Client *m_client = nullptr; // while run() is in progress
};

// The first thing to check when the upstream URL is unusable; empty when it is fine.
QString upstreamUrlProblem(const QString &baseUrl);
