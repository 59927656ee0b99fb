#include "PortalGlobalShortcuts.h"

#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
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

QString PortalGlobalShortcuts::requestPath(const QString &token) const
{
    QString sender = m_bus.baseService().mid(1);
    sender.replace(u'.', u'_');
    return portalPath + u"/request/"_s + sender + u'/' + token;
}

bool PortalGlobalShortcuts::start(std::function<bool(int keyCode, quint64 flags)> handler)
{
    if (!m_bus.isConnected())
        return false;
    m_handler = std::move(handler);
    m_bus.connect(
        portalService, portalPath, shortcutsInterface, u"Activated"_s, this, SLOT(activated(QDBusMessage)));

    // The answer arrives as a signal on a request object; listen before asking, so a
    // quick answer is not missed.
    const QString token = u"tessary_%1"_s.arg(quintptr(this), 0, 16);
    m_pendingRequest = requestPath(token);
    m_bus.connect(portalService, m_pendingRequest, u"org.freedesktop.portal.Request"_s, u"Response"_s, this,
        SLOT(sessionCreated(uint, QVariantMap)));

    const PortalShortcut shortcut { shortcutId,
        { { u"description"_s, u"Rewrite as me"_s }, { u"preferred_trigger"_s, u"CTRL+ALT+H"_s } } };
    // Plasma 5.27 registers the shortcuts handed to CreateSession; BindShortcuts there only
    // opens the desktop's settings.
    const QVariantMap options { { u"handle_token"_s, token }, { u"session_handle_token"_s, sessionToken },
        { u"shortcuts"_s, QVariant::fromValue(QList<PortalShortcut> { shortcut }) } };
    QDBusMessage call
        = QDBusMessage::createMethodCall(portalService, portalPath, shortcutsInterface, u"CreateSession"_s);
    call << options;
    auto *watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(call, 5000), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [](QDBusPendingCallWatcher *w) {
        w->deleteLater();
        if (w->isError()) {
            qCWarning(lcPortalShortcut)
                << "the desktop's shortcut portal refused a session:" << w->error().name()
                << "- use the tray menu, or bind `tessary --trigger` in the desktop's settings";
        }
    });
    return true;
}

void PortalGlobalShortcuts::sessionCreated(uint response, const QVariantMap &results)
{
    m_bus.disconnect(portalService, m_pendingRequest, u"org.freedesktop.portal.Request"_s, u"Response"_s,
        this, SLOT(sessionCreated(uint, QVariantMap)));
    if (response != 0) {
        qCWarning(lcPortalShortcut) << "the desktop did not grant the shortcut (answer" << response << ")";
        return;
    }
    m_sessionHandle = results.value(u"session_handle"_s).toString();
    qCDebug(lcPortalShortcut) << "shortcut session" << m_sessionHandle;
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
    m_handler(Keys::H, Keys::Control | Keys::Option);
}

void PortalGlobalShortcuts::stop()
{
    m_handler = nullptr;
    if (m_sessionHandle.isEmpty())
        return;
    m_bus.asyncCall(
        QDBusMessage::createMethodCall(portalService, m_sessionHandle, sessionInterface, u"Close"_s));
    m_sessionHandle.clear();
}
