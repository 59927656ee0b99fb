#include "ShortcutSetup.h"

#include "Platform.h"

#include <QPointer>

using namespace Qt::StringLiterals;

ShortcutSetup::ShortcutSetup(DesktopShortcut *shortcut, QObject *parent)
    : QObject(parent)
    , m_shortcut(shortcut)
    , m_offered(shortcut && !shortcut->isBound())
{
}

bool ShortcutSetup::canAdd() const
{
    return m_offered && !m_added && m_shortcut->canAdd();
}

QString ShortcutSetup::message() const
{
    if (!m_offered)
        return {};
    if (m_added)
        return u"Ctrl+Alt+H is set up."_s;
    return m_error.isEmpty() ? m_shortcut->advice() : m_error;
}

QString ShortcutSetup::configLine() const
{
    return m_offered ? m_shortcut->configLine() : QString();
}

void ShortcutSetup::add()
{
    if (!canAdd() || m_adding)
        return;
    m_adding = true;
    m_shortcut->add([self = QPointer(this)](const QString &error) {
        if (!self)
            return;
        self->m_adding = false;
        self->m_added = error.isEmpty();
        self->m_error = error;
        Q_EMIT self->changed();
        if (self->m_added)
            Q_EMIT self->shortcutAdded();
    });
}
