#include "Limits.h"

using namespace Qt::StringLiterals;

Limits::Limits(Settings settings)
    : m_settings(settings)
{
}

std::optional<Limits::Refusal> Limits::admit(const QString &name, Clock::time_point now)
{
    if (m_settings.requestsPerWindowPerToken > 0) {
        std::deque<Clock::time_point> &started = m_started[name];
        while (!started.empty() && now - started.front() >= m_settings.window)
            started.pop_front();
        if (int(started.size()) >= m_settings.requestsPerWindowPerToken) {
            const auto wait
                = std::chrono::ceil<std::chrono::seconds>(started.front() + m_settings.window - now);
            return Refusal { u"requests_per_minute_per_token"_s,
                u"Rate limit reached (requests_per_minute_per_token): at most %1 rewrites per minute for "
                u"each "
                "token. Try again in %2 s."_s.arg(m_settings.requestsPerWindowPerToken)
                    .arg(std::max<qint64>(1, wait.count())),
                int(std::max<qint64>(1, wait.count())) };
        }
    }
    if (m_settings.maxStreamsPerToken > 0 && m_openByName.value(name) >= m_settings.maxStreamsPerToken)
        return Refusal { u"max_streams_per_token"_s,
            u"Rate limit reached (max_streams_per_token): at most %1 rewrites at a time for each token. "
            "Try again when one has finished."_s.arg(m_settings.maxStreamsPerToken),
            1 };
    if (m_open >= m_settings.maxStreams)
        return Refusal { u"max_streams"_s,
            u"tessary-server is busy with %1 rewrites (max_streams). Try again in a moment."_s.arg(
                m_settings.maxStreams),
            1 };
    if (m_settings.requestsPerWindowPerToken > 0)
        m_started[name].push_back(now);
    ++m_open;
    ++m_openByName[name];
    return std::nullopt;
}

void Limits::release(const QString &name)
{
    --m_open;
    if (--m_openByName[name] <= 0)
        m_openByName.remove(name);
}
