#include "TrayMenu.h"

#include "Platform.h"
#include "UpdateService.h"

#include <QAction>
#include <QCursor>
#include <QDir>
#include <QEvent>
#include <QGuiApplication>
#include <QIcon>
#include <QImageReader>
#include <QMenu>
#include <QPalette>
#include <QPixmap>
#include <QSystemTrayIcon>

using namespace Qt::StringLiterals;

TrayMenu::TrayMenu(UpdateService &updates, QObject *parent)
    : QObject(parent)
    , m_updates(updates)
    , m_icon(new QSystemTrayIcon(this))
{
    updateIcon();
    updateToolTip();
    // Panels that speak only XEmbed report a left click as activation and open no
    // menu themselves; every other tray utility opens its menu there.
    connect(m_icon, &QSystemTrayIcon::activated, this, [this](QSystemTrayIcon::ActivationReason reason) {
        if (reason == QSystemTrayIcon::Trigger && m_menu && !m_menu->isVisible())
            m_menu->popup(QCursor::pos());
    });
    connect(&m_updates, &UpdateService::upToDate, this,
        [this](const QString &version) { notify(u"Tessary %1 is up to date."_s.arg(version)); });
    connect(&m_updates, &UpdateService::checkFailed, this,
        [this](const QString &reason) { notify(u"Could not check for updates: %1"_s.arg(reason)); });
    connect(&m_updates, &UpdateService::updateStatusChanged, this, &TrayMenu::updateMenuForUpdateStatus);
    qApp->installEventFilter(this);
    rebuild();
    m_icon->show();
}

TrayMenu::~TrayMenu()
{
    m_icon->hide();
    delete m_menu;
}

void TrayMenu::rebuild()
{
    auto *menu = new QMenu;
    menu->setAccessibleName(u"Tessary"_s);
    QAction *rewrite = menu->addAction(u"Rewrite as me"_s);
    // Shown beside the title like the other items' keys; the key grab is what answers it.
    rewrite->setShortcut(QKeySequence(Qt::CTRL | Qt::ALT | Qt::Key_H));
    connect(rewrite, &QAction::triggered, this, &TrayMenu::rewriteRequested);
    m_undo = menu->addAction(u"Undo last rewrite"_s);
    m_undo->setEnabled(m_undoAvailable);
    connect(m_undo, &QAction::triggered, this, &TrayMenu::undoRequested);
    menu->addSeparator();

    QAction *update = menu->addAction(u"Check for Updates…"_s);
    if (m_updates.updateAvailable()) {
        update->setText(u"Update Available!"_s);
        QFont bold = update->font();
        bold.setBold(true);
        update->setFont(bold);
    }
    connect(update, &QAction::triggered, this, &TrayMenu::checkForUpdates);

    connect(menu->addAction(u"History…"_s), &QAction::triggered, this, &TrayMenu::historyRequested);
    QAction *settings = menu->addAction(u"Settings…"_s);
    // Shown for the user; they work while the menu is open.
    settings->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Comma));
    connect(settings, &QAction::triggered, this, &TrayMenu::settingsRequested);
    menu->addSeparator();
    QAction *quit = menu->addAction(u"Quit Tessary"_s);
    quit->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Q));
    connect(quit, &QAction::triggered, this, &TrayMenu::quitRequested);

    m_icon->setContextMenu(menu);
    // The old menu may be the one whose item is being handled right now.
    if (m_menu)
        m_menu->deleteLater();
    m_menu = menu;
}

bool TrayMenu::hostFound()
{
    // Qt looks for a StatusNotifier watcher on the session bus, then for an XEmbed tray.
    return QSystemTrayIcon::isSystemTrayAvailable();
}

void TrayMenu::checkForUpdates()
{
    if (m_updates.updateAvailable())
        m_updates.openDownloadURL();
    else
        m_updates.checkForUpdates(false);
}

void TrayMenu::setShortcutAvailable(bool available)
{
    m_shortcutAvailable = available;
    updateToolTip();
}

bool TrayMenu::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == qApp && event->type() == QEvent::ApplicationPaletteChange)
        updateIcon();
    return QObject::eventFilter(watched, event);
}

void TrayMenu::updateIcon()
{
    // Monochrome, in the ink that stands out on the panel's own colour.
    const bool darkPanel = QGuiApplication::palette().color(QPalette::Window).lightness() < 128;
    const QString ink = darkPanel ? u"light"_s : u"dark"_s;
    QIcon icon;
    const QDir icons(u":/tessary/icons"_s);
    // Filtered by hand: QDir's name filters would load a regular expression compiler.
    for (const QString &file : icons.entryList(QDir::Files)) {
        if (!file.startsWith(u"tray-%1-"_s.arg(ink)))
            continue;
        // Read as PNG and nothing else: guessing would load every image format plugin.
        QImageReader reader(icons.filePath(file), "png");
        reader.setAutoDetectImageFormat(false);
        icon.addPixmap(QPixmap::fromImage(reader.read()));
    }
    if (icon.availableSizes().isEmpty() && icon.pixmap(22).isNull())
        icon = QIcon::fromTheme(u"sparkles"_s, QIcon::fromTheme(u"starred"_s));
    m_icon->setIcon(icon);
}

void TrayMenu::setDesktopShortcut(const DesktopShortcut *shortcut)
{
    m_desktopShortcut = shortcut;
    updateToolTip();
}

void TrayMenu::setUndoAvailable(bool available)
{
    m_undoAvailable = available;
    if (m_undo)
        m_undo->setEnabled(available);
}

void TrayMenu::updateToolTip()
{
    const QString works = u"Tessary — Ctrl+Alt+H rewrites the selection"_s;
    if (m_desktopShortcut) {
        m_icon->setToolTip(m_desktopShortcut->isBound()
                ? works
                : u"Tessary — Ctrl+Alt+H works once your desktop runs `tessary --trigger` (see Settings); the menu always works."_s);
        return;
    }
    m_icon->setToolTip(m_shortcutAvailable
            ? works
            : u"Tessary — Ctrl+Alt+H is unavailable: another program uses it. Use the menu instead."_s);
}

void TrayMenu::notify(const QString &message)
{
    m_icon->showMessage(u"Tessary"_s, message, QSystemTrayIcon::Information);
}
