#include "AccessibilitySwitch.h"

#include "Platform.h"

#include <QPointer>

AccessibilitySwitch::AccessibilitySwitch(QObject *parent)
    : QObject(parent)
{
}

void AccessibilitySwitch::setBackend(Accessibility *accessibility)
{
    m_accessibility = accessibility;
    refresh();
}

void AccessibilitySwitch::refresh()
{
    if (!m_accessibility)
        return;
    QPointer<AccessibilitySwitch> self(this);
    m_accessibility->status([self](AccessibilityStatus status) {
        if (!self)
            return;
        self->m_known = true;
        self->m_on = status.on;
        self->m_switchable = status.switchable;
        Q_EMIT self->changed();
    });
}

void AccessibilitySwitch::turnOn()
{
    if (!m_accessibility || m_turningOn)
        return;
    m_turningOn = true;
    Q_EMIT changed();
    QPointer<AccessibilitySwitch> self(this);
    m_accessibility->turnOn([self](bool on) {
        if (!self)
            return;
        self->m_turningOn = false;
        self->m_on = on;
        Q_EMIT self->changed();
    });
}
