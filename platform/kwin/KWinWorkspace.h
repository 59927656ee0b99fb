#pragma once

#include "Platform.h"

#include <QDBusConnection>
#include <QHash>
#include <QObject>
#include <QSet>

// The window in front, activation and our popup's placement on a Plasma Wayland session,
// where no client may ask such things itself: small KWin scripts, loaded over D-Bus, do it
// and call back with what they found.
class KWinWorkspace : public QObject, public Workspace
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "app.tessary.KWinScript")

public:
    explicit KWinWorkspace(QDBusConnection bus = QDBusConnection::sessionBus(), QObject *parent = nullptr);
    ~KWinWorkspace() override;

    void frontmostApplication(std::function<void(std::optional<RunningApplication>)> done) override;
    void activate(const RunningApplication &app, std::function<void(bool active)> done) override;
    // Puts the window under the pointer, keeps it above the others and gives it the keyboard.
    void activateSelf(QWindow *window) override;

public Q_SLOTS:
    // Called back by the scripts.
    Q_SCRIPTABLE void reply(
        int request, int pid, const QString &windowClass); // script numbers arrive as int32

private:
    using Reply = std::function<void(qint64 pid, const QString &windowClass)>;
    void run(const QString &script, Reply reply);
    void finish(int request, qint64 pid, const QString &windowClass);
    void unload(const QString &plugin);

    QDBusConnection m_bus;
    bool m_registered = false;
    QHash<int, Reply> m_waiting;
    QSet<QString> m_loaded; // scripts KWin still holds
};
