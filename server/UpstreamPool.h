#pragma once

#include <QString>
#include <QStringList>

#include <chrono>
#include <vector>

// The model servers a rewrite may go to, in the configured order, and what is known of
// each: whether it is cooling down after a failure, and when it last listed its models.
// Lives on the server's event loop; not for other threads.
class UpstreamPool
{
public:
    using Clock = std::chrono::steady_clock;

    UpstreamPool(QStringList urls, std::chrono::milliseconds coolDown);

    const QStringList &urls() const { return m_urls; }
    // The first one not cooling down, skipping `except`; -1 when there is none. Without
    // `except` and with all cooling down, the first: a request is never refused for it.
    int pick(Clock::time_point now, int except = -1) const;
    // It refused a connection or answered 5xx before any text: skipped for the cool-down.
    void failed(int index, Clock::time_point now);
    // It answered its model list: ready, and no longer cooling down.
    void answered(int index, Clock::time_point now);

    // Some upstream answered its model list within `window`; otherwise `reason` says why not.
    bool ready(Clock::time_point now, std::chrono::milliseconds window, QString *reason = nullptr) const;

private:
    struct Health
    {
        Clock::time_point coolUntil {};
        Clock::time_point lastAnswer {};
        bool everAnswered = false;
    };
    QStringList m_urls;
    std::chrono::milliseconds m_coolDown;
    std::vector<Health> m_health;
};
