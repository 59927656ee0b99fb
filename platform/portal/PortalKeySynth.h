#pragma once

#include "Platform.h"

#include <QDBusConnection>
#include <QObject>

#include <deque>

// Ctrl+C and Ctrl+V for Wayland sessions, typed through the desktop's RemoteDesktop portal.
// One session serves the whole run, so the desktop's notice that a program may send keys
// shows once, at the first copy or paste, not at every one.
class PortalKeySynth : public QObject, public KeySynth
{
    Q_OBJECT

public:
    explicit PortalKeySynth(QDBusConnection bus = QDBusConnection::sessionBus(), QObject *parent = nullptr);
    ~PortalKeySynth() override;

    void post(int keyCode, quint64 flags, std::function<void()> posted) override;

private:
    struct Press
    {
        int keyCode;
        quint64 flags;
        std::function<void()> posted;
    };
    enum class State { Idle, Starting, Ready, Failed };

    void startSession();
    void failed(const char *step, uint response);
    void drain();
    void typeNext();
    void queueKeys(const Press &press);

    QDBusConnection m_bus;
    State m_state = State::Idle;
    QString m_session;
    std::deque<Press> m_waiting;
    // The key events of the press being typed, each sent once the portal answered the
    // one before: the portal may handle calls that arrive together in any order.
    std::deque<std::pair<int, bool>> m_keys;
    bool m_typing = false;
};
