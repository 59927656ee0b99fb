#include "UpstreamPool.h"

using namespace Qt::StringLiterals;

UpstreamPool::UpstreamPool(QStringList urls, std::chrono::milliseconds coolDown)
    : m_urls(std::move(urls))
    , m_coolDown(coolDown)
    , m_health(size_t(m_urls.size()))
{
}

int UpstreamPool::pick(Clock::time_point now, int except) const
{
    for (int i = 0; i < int(m_health.size()); ++i) {
        if (i != except && m_health[size_t(i)].coolUntil <= now)
            return i;
    }
    return except < 0 && !m_health.empty() ? 0 : -1;
}

void UpstreamPool::failed(int index, Clock::time_point now)
{
    if (index >= 0 && index < int(m_health.size()))
        m_health[size_t(index)].coolUntil = now + m_coolDown;
}

void UpstreamPool::answered(int index, Clock::time_point now)
{
    if (index < 0 || index >= int(m_health.size()))
        return;
    Health &health = m_health[size_t(index)];
    health.coolUntil = {};
    health.lastAnswer = now;
    health.everAnswered = true;
}

bool UpstreamPool::ready(Clock::time_point now, std::chrono::milliseconds window, QString *reason) const
{
    bool answeredOnce = false;
    for (const Health &health : m_health) {
        if (health.everAnswered && now - health.lastAnswer <= window)
            return true;
        answeredOnce = answeredOnce || health.everAnswered;
    }
    if (reason)
        *reason = m_urls.isEmpty() ? u"no upstream_url is set"_s
            : answeredOnce         ? u"no model server has answered its model list for %1 s"_s.arg(
                          std::chrono::duration_cast<std::chrono::seconds>(window).count())
                           : u"no model server has answered its model list yet"_s;
    return false;
}
