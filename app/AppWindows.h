#pragma once

#include <QObject>

#include <memory>

class Accessibility;
class DesktopShortcut;
class HistoryListModel;
class HistoryStore;
class OnboardingModel;
class Presence;
class QmlEngine;
class QQuickWindow;
class QWindow;
class SettingsModel;
class StorageManager;
class UpdateService;
class Workspace;

// The program's own windows, settings and onboarding: made once and shown again. While
// one is open Tessary shows in the task bar; shortly after it closes, only in the tray.
class AppWindows : public QObject
{
    Q_OBJECT

public:
    // desktopShortcut: where the desktop runs Ctrl+Alt+H for Tessary, null elsewhere. The
    // windows are made in qml, the engine the popups use too.
    AppWindows(StorageManager &storage, UpdateService &updateService, Workspace *workspace, QmlEngine &qml,
        DesktopShortcut *desktopShortcut = nullptr, QObject *parent = nullptr);
    ~AppWindows() override;

    // Settings show the desktop's accessibility switch through it; null: not shown.
    void setAccessibility(Accessibility *accessibility) { m_accessibility = accessibility; }
    // Where the desktop shows no tray icon, the welcome page says how Settings open.
    void setTrayShown(bool shown) { m_trayShown = shown; }
    void showSettings();
    void showOnboarding();
    // The rewrites kept on this machine; without a store the window is not offered.
    void setHistoryStore(HistoryStore *store) { m_history = store; }
    void showHistory();
    void windowWillClose(QWindow *window);
    QQuickWindow *settingsWindow() const { return m_settingsWindow.get(); }
    QQuickWindow *onboardingWindow() const { return m_onboardingWindow.get(); }
    Presence &presence();
    DesktopShortcut *desktopShortcut() const { return m_desktopShortcut; }

Q_SIGNALS:
    // The settings or onboarding window bound Ctrl+Alt+H in the desktop's settings.
    void desktopShortcutAdded();
    // "Rewrite again" in the History window: `asked` is the tone or instruction it had.
    void rewriteRequested(const QString &text, const QString &asked);

private:
    QQuickWindow *createWindow(const QString &url, QObject *model);
    void showWindow(QQuickWindow *window);
    void onboardingCompleted();

    StorageManager &m_storage;
    UpdateService &m_updateService;
    Workspace *m_workspace;
    QmlEngine &m_qml;
    DesktopShortcut *m_desktopShortcut;
    Accessibility *m_accessibility = nullptr;
    bool m_trayShown = true;
    HistoryStore *m_history = nullptr;

    // Shared pointers: they are destroyed where these types are not known.
    std::shared_ptr<Presence> m_presence;
    std::shared_ptr<SettingsModel> m_settingsModel;
    std::shared_ptr<QQuickWindow> m_settingsWindow;
    std::shared_ptr<OnboardingModel> m_onboardingModel;
    std::shared_ptr<QQuickWindow> m_onboardingWindow;
    std::shared_ptr<HistoryListModel> m_historyModel;
    std::shared_ptr<QQuickWindow> m_historyWindow;
};
