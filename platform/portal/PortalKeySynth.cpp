#include "PortalKeySynth.h"

#include "PortalRequest.h"
#include "wayland/EvdevKeys.h"

#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QLoggingCategory>

using namespace Qt::StringLiterals;

Q_LOGGING_CATEGORY(lcPortalKeys, "tessary.platform.keys")

namespace {
const QString portalService = u"org.freedesktop.portal.Desktop"_s;
const QString portalPath = u"/org/freedesktop/portal/desktop"_s;
const QString remoteDesktop = u"org.freedesktop.portal.RemoteDesktop"_s;
constexpr uint keyboardDevice = 1;
constexpr int keyReplyDeadlineMs = 1000;
} // namespace

PortalKeySynth::PortalKeySynth(QDBusConnection bus, QObject *parent)
    : QObject(parent)
    , m_bus(std::move(bus))
{
}

PortalKeySynth::~PortalKeySynth()
{
    if (!m_session.isEmpty()) {
        m_bus.send(QDBusMessage::createMethodCall(
            portalService, m_session, u"org.freedesktop.portal.Session"_s, u"Close"_s));
    }
}

void PortalKeySynth::post(int keyCode, quint64 flags, std::function<void()> posted)
{
    m_waiting.push_back({ keyCode, flags, std::move(posted) });
    if (m_state == State::Idle)
        startSession();
    else
        drain();
}

void PortalKeySynth::startSession()
{
    m_state = State::Starting;
    PortalRequest::send(
        m_bus, remoteDesktop, u"CreateSession"_s, {}, { { u"session_handle_token"_s, u"tessary_keys"_s } },
        [this](uint response, const QVariantMap &results) {
            if (response != 0)
                return failed("CreateSession", response);
            m_session = results.value(u"session_handle"_s).toString();
            const QVariantList devices { QVariant::fromValue(QDBusObjectPath(m_session)) };
            PortalRequest::send(
                m_bus, remoteDesktop, u"SelectDevices"_s, devices, { { u"types"_s, keyboardDevice } },
                [this](uint response, const QVariantMap &) {
                    if (response != 0)
                        return failed("SelectDevices", response);
                    const QVariantList start { QVariant::fromValue(QDBusObjectPath(m_session)), QString() };
                    PortalRequest::send(
                        m_bus, remoteDesktop, u"Start"_s, start, {},
                        [this](uint response, const QVariantMap &) {
                            if (response != 0)
                                return failed("Start", response);
                            m_state = State::Ready;
                            drain();
                        },
                        this);
                },
                this);
        },
        this);
}

void PortalKeySynth::failed(const char *step, uint response)
{
    qCWarning(lcPortalKeys) << "the desktop refused to let Tessary type keys:" << step << "answered"
                            << response;
    m_state = State::Failed;
    drain();
}

void PortalKeySynth::drain()
{
    if (m_state == State::Starting || m_typing || m_waiting.empty())
        return;
    // Without a session nothing is typed; the caller's sequence still goes on, so the
    // text stays on the clipboard for the user to paste.
    if (m_state == State::Ready)
        queueKeys(m_waiting.front());
    m_typing = true;
    typeNext();
}

void PortalKeySynth::queueKeys(const Press &press)
{
    const int code = EvdevKeys::code(press.keyCode);
    if (code == 0)
        return;
    const QList<int> modifiers = EvdevKeys::modifiers(press.flags);
    for (int modifier : modifiers)
        m_keys.emplace_back(modifier, true);
    m_keys.emplace_back(code, true);
    m_keys.emplace_back(code, false);
    for (auto it = modifiers.crbegin(); it != modifiers.crend(); ++it)
        m_keys.emplace_back(*it, false);
}

void PortalKeySynth::typeNext()
{
    if (m_keys.empty()) {
        m_typing = false;
        Press press = std::move(m_waiting.front());
        m_waiting.pop_front();
        if (press.posted)
            press.posted();
        drain();
        return;
    }
    const auto [code, down] = m_keys.front();
    m_keys.pop_front();
    QDBusMessage call = QDBusMessage::createMethodCall(
        portalService, portalPath, remoteDesktop, u"NotifyKeyboardKeycode"_s);
    call << QVariant::fromValue(QDBusObjectPath(m_session)) << QVariantMap() << code << uint(down ? 1 : 0);
    // An error answer or none at all still moves on: a key left down would be worse.
    auto *watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(call, keyReplyDeadlineMs), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher *watcher) {
        watcher->deleteLater();
        typeNext();
    });
}
