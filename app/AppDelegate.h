#pragma once

#include "Platform.h"
#include "PopupHost.h"

#include <QObject>

#include <memory>
#include <optional>

struct Platform;
class AccessibilityHelper;
class HumanizeService;
class OnboardingModel;
class PopupWindowController;
class PopupWindowFactory;
class Presence;
class QQmlEngine;
class QQuickWindow;
class QWindow;
class Rewriter;
class SettingsModel;
class StorageManager;
class TrayMenu;
class UpdateService;

// The application controller: receives rewrite requests from the shortcut, the tray
// menu and D-Bus, and owns the windows.
class AppDelegate : public QObject, public PopupHost
{
    Q_OBJECT

public:
    AppDelegate(Platform &platform, StorageManager &storage, QObject *parent = nullptr);
    ~AppDelegate() override;

    // Launch: tray, shortcut, first-run onboarding while no API key is stored, and the
    // silent version check 2 s later. The settings and onboarding windows are made once
    // and shown again; while one is open Tessary shows in the task bar.
    void applicationDidFinishLaunching();
    Q_INVOKABLE void showSettings();
    void showOnboarding();
    void windowWillClose(QWindow *window);
    QQuickWindow *settingsWindow() const { return m_settingsWindow.get(); }
    QQuickWindow *onboardingWindow() const { return m_onboardingWindow.get(); }
    Presence &presence();

    // The rewrite road: capture the selection, open the popup over the window the user
    // is in, and give that window the keyboard back for Replace.
    Q_INVOKABLE void triggerHumanize();
    void showPopup(const QString &text);
    // The D-Bus entry: a popup for text handed over by another program.
    void humanizeSelectedText(const QString &text);
    PopupWindowController *popupWindowController() const { return m_popupWindowController.get(); }

    // PopupHost
    void returnToPreviousApp(std::function<void(bool returned)> done) override;
    void replaceSelectedText(const QString &text, std::function<void(bool replaced)> done) override;
    void copyToClipboard(const QString &text) override;

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

    // Launch and windows. Shared pointers: they are destroyed where these types are
    // not known, and they go before the engine their windows came from.
    QQuickWindow *createWindow(const QString &url, QObject *model);
    void showWindow(QQuickWindow *window);
    void onboardingCompleted();
    std::shared_ptr<Presence> m_presence;
    std::shared_ptr<QQmlEngine> m_windowEngine;
    std::shared_ptr<SettingsModel> m_settingsModel;
    std::shared_ptr<QQuickWindow> m_settingsWindow;
    std::shared_ptr<OnboardingModel> m_onboardingModel;
    std::shared_ptr<QQuickWindow> m_onboardingWindow;

    // The rewrite road
    AccessibilityHelper &accessibilityHelper();
    Rewriter &rewriter();
    std::unique_ptr<AccessibilityHelper> m_accessibilityHelper;
    std::unique_ptr<HumanizeService> m_humanizeService;
    PopupWindowFactory &popupWindows();
    std::unique_ptr<QQmlEngine> m_popupEngine; // shared by all popups: no compile per popup
    std::unique_ptr<PopupWindowFactory> m_popupWindows;
    std::unique_ptr<PopupWindowController> m_previousPopup;
    std::unique_ptr<PopupWindowController> m_popupWindowController;
    std::optional<RunningApplication> m_previousApplication;
};
