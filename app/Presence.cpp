#include "Presence.h"

#include <QLoggingCategory>
#include <QWindow>

Q_LOGGING_CATEGORY(lcPresence, "tessary.presence", QtInfoMsg)

void Presence::track(QWindow *window)
{
    m_windows.removeAll(nullptr);
    if (!m_windows.contains(window))
        m_windows.append(window);
}

void Presence::hideApplication()
{
    for (const QPointer<QWindow> &window : std::as_const(m_windows)) {
        if (window && window->isVisible())
            window->hide();
    }
}

void Presence::setPolicy(Policy policy)
{
    qCDebug(lcPresence) << "policy" << policy;
    if (policy == m_policy)
        return;
    m_policy = policy;
    Q_EMIT policyChanged(policy);
}
