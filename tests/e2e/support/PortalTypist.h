#pragma once

// Keys a person would type into a Wayland window that is not on the accessibility bus
// (select all, save), through a RemoteDesktop session of the test's own.
#include "portal/PortalRequest.h"

#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusPendingReply>

#include <linux/input-event-codes.h>

class PortalTypist : public QObject
{
public:
    PortalTypist()
    {
        using namespace Qt::StringLiterals;
        const auto step = [this](const QString &method, QVariantList arguments, QVariantMap options,
                              std::function<void(const QVariantMap &)> next) {
            PortalRequest::send(
                QDBusConnection::sessionBus(), remoteDesktop, method, arguments, options,
                [next](uint response, const QVariantMap &results) {
                    if (response == 0)
                        next(results);
                },
                this);
        };
        step(u"CreateSession"_s, {}, { { u"session_handle_token"_s, u"typist"_s } },
            [this, step](auto &results) {
                m_session = QDBusObjectPath(results.value(u"session_handle"_s).toString());
                step(u"SelectDevices"_s, { QVariant::fromValue(m_session) }, { { u"types"_s, 1u } },
                    [this, step](auto &) {
                        step(u"Start"_s, { QVariant::fromValue(m_session), QString() }, {},
                            [this](auto &) { m_ready = true; });
                    });
            });
    }

    ~PortalTypist() override
    {
        QDBusConnection::sessionBus().call(
            QDBusMessage::createMethodCall(QStringLiteral("org.freedesktop.portal.Desktop"), m_session.path(),
                QStringLiteral("org.freedesktop.portal.Session"), QStringLiteral("Close")));
    }

    bool isReady() const { return m_ready; }

    // Ctrl+key, each event once the portal answered the one before.
    void ctrl(int evdevKey)
    {
        for (auto [code, down] :
            { std::pair { KEY_LEFTCTRL, 1u }, { evdevKey, 1u }, { evdevKey, 0u }, { KEY_LEFTCTRL, 0u } }) {
            QDBusMessage call
                = QDBusMessage::createMethodCall(QStringLiteral("org.freedesktop.portal.Desktop"),
                    QStringLiteral("/org/freedesktop/portal/desktop"), remoteDesktop,
                    QStringLiteral("NotifyKeyboardKeycode"));
            call << QVariant::fromValue(m_session) << QVariantMap() << code << down;
            QDBusConnection::sessionBus().call(call);
        }
    }

private:
    inline static const QString remoteDesktop = QStringLiteral("org.freedesktop.portal.RemoteDesktop");
    QDBusObjectPath m_session;
    bool m_ready = false;
};
