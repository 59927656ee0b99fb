#include "PortalGlobalShortcuts.h"

#include "PortalRequest.h"

#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QLoggingCategory>

using namespace Qt::StringLiterals;

Q_LOGGING_CATEGORY(lcPortalShortcut, "tessary.platform.shortcut")

namespace {

const QString portalService = u"org.freedesktop.portal.Desktop"_s;
const QString portalPath = u"/org/freedesktop/portal/desktop"_s;
const QString shortcutsInterface = u"org.freedesktop.portal.GlobalShortcuts"_s;
const QString sessionInterface = u"org.freedesktop.portal.Session"_s;
const QString shortcutId = u"rewrite-selection"_s;
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

    const PortalShortcut shortcut { shortcutId,
        { { u"description"_s, u"Rewrite as me"_s }, { u"preferred_trigger"_s, u"CTRL+ALT+H"_s } } };
    // Plasma 5.27 registers the shortcuts handed to CreateSession; BindShortcuts there only
    // opens the desktop's settings.
    const QVariantMap options { { u"session_handle_token"_s, sessionToken },
        { u"shortcuts"_s, QVariant::fromValue(QList<PortalShortcut> { shortcut }) } };
    PortalRequest::send(
        m_bus, shortcutsInterface, u"CreateSession"_s, {}, options,
        [this](uint response, const QVariantMap &results) {
            if (response != 0) {
                qCWarning(lcPortalShortcut)
                    << "the desktop did not register Ctrl+Alt+H (answer" << response
                    << "): use the tray menu, or bind `tessary --trigger` in its settings";
                return;
            }
            m_sessionHandle = results.value(u"session_handle"_s).toString();
        },
        this);
    return true;
}

void PortalGlobalShortcuts::activated(const QDBusMessage &message)
{
    // (o session_handle, s shortcut_id, t timestamp, a{sv} options)
    const QVariantList arguments = message.arguments();
    if (arguments.size() < 2 || !m_handler)
        return;
    if (arguments.at(1).toString() != shortcutId)
        return;
    if (arguments.at(0).value<QDBusObjectPath>().path() != m_sessionHandle)
        return;
    m_handler(Keys::H, Keys::Control | Keys::Alt);
}

void PortalGlobalShortcuts::stop()
{
    m_handler = nullptr;
    if (m_sessionHandle.isEmpty())
        return;
    m_bus.send(QDBusMessage::createMethodCall(portalService, m_sessionHandle, sessionInterface, u"Close"_s));
    m_sessionHandle.clear();
}
