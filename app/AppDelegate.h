#pragma once

#include <QObject>

#include <memory>

struct Platform;
class StorageManager;
class TrayMenu;
class UpdateService;

// The application controller: receives rewrite requests from the shortcut, the tray
// menu and D-Bus, and owns the windows.
class AppDelegate : public QObject
{
    Q_OBJECT

public:
    AppDelegate(Platform &platform, StorageManager &storage, QObject *parent = nullptr);
    ~AppDelegate() override;

    // Global shortcut Ctrl+Alt+H. startEventTap takes the shortcut for the session;
    // when another program holds it, the tray says so and the menu still works.
    void startEventTap();
    // The decision for one key press, in Keys codes and flags: true when it was the
    // shortcut, whose rewrite is then queued (never run inside the key handler).
    bool handleEvent(int keyCode, quint64 flags);
    static bool isHotkey(int keyCode, quint64 flags);
    // Waits, every 2 s, until other programs' text can be reached, then starts the
    // shortcut.
    void pollAccessibilityPermission();
    bool eventTapRunning() const { return m_eventTapRunning; }

    // The tray icon and its menu; setupMenuBar makes the icon once and the menu anew.
    void setupMenuBar();
    void updateMenuForUpdateStatus();
    // The menu's update item: opens a known download, otherwise asks the service.
    void checkForUpdates();
    TrayMenu *statusItem() const { return m_statusItem; }
    UpdateService &updateService() const { return *m_updateService; }

private:
    Platform &m_platform;
    StorageManager &m_storage;
    std::unique_ptr<UpdateService> m_updateService;
    TrayMenu *m_statusItem = nullptr;
    bool m_eventTapRunning = false;
};
