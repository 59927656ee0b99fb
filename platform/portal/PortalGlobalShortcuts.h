#pragma once

#include "Platform.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QObject>
#include <QVariantMap>

// Ctrl+Alt+H through the desktop's GlobalShortcuts portal, for Wayland sessions where no
// program may grab keys itself. The desktop owns the key: the user may rebind it in its
// settings, and only its activations reach us.
class PortalGlobalShortcuts : public QObject, public KeyboardGrab
{
    Q_OBJECT

public:
    explicit PortalGlobalShortcuts(
        QDBusConnection bus = QDBusConnection::sessionBus(), QObject *parent = nullptr);
    ~PortalGlobalShortcuts() override;

    // Asks the portal for a session that carries the shortcut and returns at once; the
    // answer comes later. A failure is reported on the diagnostics category, and the
    // tray menu keeps working.
    bool start(std::function<bool(int keyCode, quint64 flags)> handler) override;
    void stop() override;
    // The desktop registers shortcuts when a session is made: a new set makes a new session.
    bool setShortcuts(const QStringList &sequences, std::function<void(int index)> activated) override;

    // A key sequence's portable text ("Ctrl+Alt+J") as the portal's trigger ("CTRL+ALT+J").
    static QString trigger(const QString &sequence);

private Q_SLOTS:
    void activated(const QDBusMessage &message);

private:
    void createSession();
    void closeSession();

    QDBusConnection m_bus;
    QStringList m_extraSequences;
    std::function<void(int)> m_extraActivated;
    std::function<bool(int, quint64)> m_handler;
    QString m_sessionHandle;
    bool m_startPending = false; // start() asks on the next turn of the event loop
    bool m_creating = false; // a CreateSession awaits its answer
    bool m_recreate = false; // the shortcuts changed meanwhile
};
