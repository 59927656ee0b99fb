#pragma once

#include <QObject>

#include <memory>

class AppWindows;
class RewriteSessions;
class Shortcut;
class StorageManager;
class TrayMenu;
class UpdateService;

// The launch: the tray (or, where the desktop shows none, word of how Settings open), the
// shortcut, the first-run onboarding while no API key is stored, and the silent version
// check 2 s later. The parts it starts are made and wired by main().
class AppDelegate : public QObject
{
    Q_OBJECT

public:
    struct Parts
    {
        AppWindows &windows;
        Shortcut &shortcut;
        RewriteSessions &sessions;
        UpdateService &updateService;
        StorageManager &storage;
    };

    explicit AppDelegate(const Parts &parts, QObject *parent = nullptr);
    ~AppDelegate() override;

    // showSettings: the command line asked for Settings (`tessary --settings`).
    void applicationDidFinishLaunching(bool showSettings = false);
    // The tray icon and its menu, made once at launch.
    void setupTray();
    TrayMenu *tray() const { return m_tray.get(); }

private:
    Parts m_parts;
    std::unique_ptr<TrayMenu> m_tray;
};
