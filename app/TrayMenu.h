#pragma once

#include <QObject>

class DesktopShortcut;
class QAction;
class QMenu;
class QSystemTrayIcon;
class UpdateService;

// The program's one tray icon and its menu. The menu is rebuilt from the update
// state whenever it changes; the icon itself is made once, so the panel never shows two.
class TrayMenu : public QObject
{
    Q_OBJECT

public:
    explicit TrayMenu(UpdateService &updates, QObject *parent = nullptr);
    ~TrayMenu() override;

    // Builds the menu anew from the update state of this moment; runs again on every
    // update status change.
    void rebuild();
    void updateMenuForUpdateStatus() { rebuild(); }
    // The update item: opens a known download, otherwise asks the service.
    void checkForUpdates();
    // Says in the tooltip that Ctrl+Alt+H belongs to another program.
    void setShortcutAvailable(bool available);
    // Where the desktop runs Ctrl+Alt+H for Tessary (null elsewhere) no other program can
    // hold it: the tooltip says whether it is set up instead. Call again once it is.
    void setDesktopShortcut(const DesktopShortcut *shortcut);
    // "Undo last rewrite" can be chosen only while there is a Replace to take back.
    void setUndoAvailable(bool available);

    // Whether the desktop shows tray icons at all: stock GNOME and a bare sway do not.
    static bool hostFound();

    QSystemTrayIcon *icon() const { return m_icon; }
    QMenu *menu() const { return m_menu; }

Q_SIGNALS:
    void rewriteRequested();
    void undoRequested();
    void settingsRequested();
    void historyRequested();
    void quitRequested();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void updateIcon();
    void updateToolTip();
    void notify(const QString &message);

    UpdateService &m_updates;
    QSystemTrayIcon *m_icon;
    QMenu *m_menu = nullptr;
    bool m_shortcutAvailable = true;
    const DesktopShortcut *m_desktopShortcut = nullptr;
    bool m_undoAvailable = false;
    QAction *m_undo = nullptr; // in m_menu
};
