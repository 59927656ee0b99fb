#include "PortalGlobalShortcuts.h"

#include "PortalRequest.h"

#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QKeySequence>
#include <QLoggingCategory>

#include <utility>

using namespace Qt::StringLiterals;

Q_LOGGING_CATEGORY(lcPortalShortcut, "tessary.platform.shortcut")

namespace {

const QString portalService = u"org.freedesktop.portal.Desktop"_s;
const QString portalPath = u"/org/freedesktop/portal/desktop"_s;
const QString shortcutsInterface = u"org.freedesktop.portal.GlobalShortcuts"_s;
const QString sessionInterface = u"org.freedesktop.portal.Session"_s;
const QString shortcutId = u"rewrite-selection"_s;
// A saved instruction's shortcut: this and its index.
const QString instructionIdPrefix = u"instruction-"_s;
// Fixed, so the desktop keeps one registration (and the user's own binding) across starts.
const QString sessionToken = u"tessary"_s;

struct PortalShortcut
{
    QString id;
    QVariantMap properties;
};

QDBusArgument &operator<<(QDBusArgument &argument, const PortalShortcut &shortcut)
{
    argument.beginStructure();
    argument << shortcut.id << shortcut.properties;
    argument.endStructure();
    return argument;
}

const QDBusArgument &operator>>(const QDBusArgument &argument, PortalShortcut &shortcut)
{
    argument.beginStructure();
    argument >> shortcut.id >> shortcut.properties;
    argument.endStructure();
    return argument;
}

} // namespace

Q_DECLARE_METATYPE(PortalShortcut)

PortalGlobalShortcuts::PortalGlobalShortcuts(QDBusConnection bus, QObject *parent)
    : QObject(parent)
    , m_bus(std::move(bus))
{
    qDBusRegisterMetaType<PortalShortcut>();
    qDBusRegisterMetaType<QList<PortalShortcut>>();
}

PortalGlobalShortcuts::~PortalGlobalShortcuts()
{
    stop();
}

bool PortalGlobalShortcuts::start(std::function<bool(int keyCode, quint64 flags)> handler)
{
    if (!m_bus.isConnected())
        return false;
    m_handler = std::move(handler);
    m_bus.connect(
        portalService, portalPath, shortcutsInterface, u"Activated"_s, this, SLOT(activated(QDBusMessage)));
    // On the next turn, so that the instruction shortcuts set right after start go into the
    // same session: a second one would leave a moment in which no press arrives.
    m_startPending = true;
    QMetaObject::invokeMethod(
        this,
        [this] {
            if (std::exchange(m_startPending, false) && m_handler)
                createSession();
        },
        Qt::QueuedConnection);
    return true;
}

bool PortalGlobalShortcuts::setShortcuts(
    const QStringList &sequences, std::function<void(int index)> activated)
{
    if (!m_bus.isConnected())
        return false;
    m_extraActivated = std::move(activated);
    if (sequences == m_extraSequences)
        return true;
    m_extraSequences = sequences;
    if (!m_handler || m_startPending)
        return true; // the session start() asks for will carry them
    // One session at a time: a set that changes while the desktop answers waits for it.
    if (m_creating) {
        m_recreate = true;
        return true;
    }
    closeSession();
    createSession();
    return true;
}

QString PortalGlobalShortcuts::trigger(const QString &sequence)
{
    const QKeySequence keys = QKeySequence::fromString(sequence, QKeySequence::PortableText);
    if (keys.isEmpty())
        return {};
    const QKeyCombination first = keys[0];
    QStringList parts;
    const Qt::KeyboardModifiers modifiers = first.keyboardModifiers();
    if (modifiers & Qt::ControlModifier)
        parts << u"CTRL"_s;
    if (modifiers & Qt::AltModifier)
        parts << u"ALT"_s;
    if (modifiers & Qt::ShiftModifier)
        parts << u"SHIFT"_s;
    if (modifiers & Qt::MetaModifier)
        parts << u"LOGO"_s;
    parts << QKeySequence(first.key()).toString(QKeySequence::PortableText).toUpper();
    return parts.join(u'+');
}

void PortalGlobalShortcuts::createSession()
{
    m_creating = true;
    QList<PortalShortcut> shortcuts { { shortcutId,
        { { u"description"_s, u"Rewrite as me"_s }, { u"preferred_trigger"_s, u"CTRL+ALT+H"_s } } } };
    for (int index = 0; index < m_extraSequences.size(); ++index) {
        const QString preferred = trigger(m_extraSequences.at(index));
        if (preferred.isEmpty())
            continue;
        shortcuts.append({ instructionIdPrefix + QString::number(index),
            { { u"description"_s, u"Rewrite with saved instruction %1"_s.arg(index + 1) },
                { u"preferred_trigger"_s, preferred } } });
    }
    // Its handle is known now: a press the desktop sends before its answer arrives is ours.
    m_sessionHandle = PortalRequest::handle(m_bus, u"session"_s, sessionToken);
    // Plasma 5.27 registers the shortcuts handed to CreateSession; BindShortcuts there only
    // opens the desktop's settings.
    const QVariantMap options { { u"session_handle_token"_s, sessionToken },
        { u"shortcuts"_s, QVariant::fromValue(shortcuts) } };
    PortalRequest::send(
        m_bus, shortcutsInterface, u"CreateSession"_s, {}, options,
        [this](uint response, const QVariantMap &results) {
            m_creating = false;
            if (response == 0)
                m_sessionHandle = results.value(u"session_handle"_s, m_sessionHandle).toString();
            else
                m_sessionHandle.clear();
            if (std::exchange(m_recreate, false)) {
                closeSession();
                createSession();
                return;
            }
            if (response != 0) {
                qCWarning(lcPortalShortcut)
                    << "the desktop did not register Ctrl+Alt+H (answer" << response
                    << "): use the tray menu, or bind `tessary --trigger` in its settings";
                return;
            }
        },
        this);
}

void PortalGlobalShortcuts::activated(const QDBusMessage &message)
{
    // (o session_handle, s shortcut_id, t timestamp, a{sv} options)
    const QVariantList arguments = message.arguments();
    if (arguments.size() < 2 || !m_handler)
        return;
    if (arguments.at(0).value<QDBusObjectPath>().path() != m_sessionHandle)
        return;
    const QString id = arguments.at(1).toString();
    if (id.startsWith(instructionIdPrefix)) {
        bool isIndex = false;
        const int index = id.sliced(instructionIdPrefix.size()).toInt(&isIndex);
        if (isIndex && index >= 0 && index < m_extraSequences.size() && m_extraActivated)
            m_extraActivated(index);
        return;
    }
    if (id != shortcutId)
        return;
    m_handler(Keys::H, Keys::Control | Keys::Alt);
}

void PortalGlobalShortcuts::stop()
{
    m_handler = nullptr;
    closeSession();
}

void PortalGlobalShortcuts::closeSession()
{
    if (m_sessionHandle.isEmpty())
        return;
    m_bus.send(QDBusMessage::createMethodCall(portalService, m_sessionHandle, sessionInterface, u"Close"_s));
    m_sessionHandle.clear();
}
