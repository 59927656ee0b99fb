#pragma once

#include <QHash>
#include <QString>

#include <chrono>
#include <deque>
#include <optional>

// Who may start a stream now: per token (concurrent streams, requests in a window) and in
// total. Lives on the server's event loop; not for other threads.
class Limits
{
public:
    using Clock = std::chrono::steady_clock;

    struct Settings
    {
        int maxStreams = 256;
        int maxStreamsPerToken = 0; // 0: no limit
        int requestsPerWindowPerToken = 0; // 0: no limit
        std::chrono::milliseconds window = std::chrono::minutes(1);
    };

    struct Refusal
    {
        QString limit; // the config key
        QString message;
        int retryAfterSeconds = 1;
    };

    explicit Limits(Settings settings);

    // Takes a stream for `name`, or says which limit stands in the way. A taken stream is
    // given back with release().
    std::optional<Refusal> admit(const QString &name, Clock::time_point now = Clock::now());
    void release(const QString &name);

    int openStreams() const { return m_open; }

private:
    Settings m_settings;
    int m_open = 0;
    QHash<QString, int> m_openByName;
    QHash<QString, std::deque<Clock::time_point>> m_started;
};
