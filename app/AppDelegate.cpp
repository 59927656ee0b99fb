#include "AppDelegate.h"

#include "AppWindows.h"
#include "Log.h"
#include "Platform.h"
#include "Presence.h"
#include "RewriteSessions.h"
#include "Shortcut.h"
#include "StorageManager.h"
#include "TrayMenu.h"
#include "UpdateService.h"

#include <QCoreApplication>
#include <QLoggingCategory>
#include <QTimer>

Q_LOGGING_CATEGORY(lcLaunch, "tessary.launch", QtInfoMsg)

using namespace Qt::StringLiterals;

namespace {
constexpr int launchVersionCheckDelay = 2000; // ms
} // namespace

AppDelegate::AppDelegate(const Parts &parts, QObject *parent)
    : QObject(parent)
    , m_parts(parts)
{
}

AppDelegate::~AppDelegate() = default;

void AppDelegate::applicationDidFinishLaunching(bool showSettings)
{
    Log::write(u">>> LAUNCHED");
    m_parts.windows.presence().setRegular();
    setupTray();
    // The D-Bus entry (what other programs hand over) was registered by main() before
    // anything else, as it also keeps a second instance from starting. A key grab needs
    // no accessibility: the shortcut works from the first moment, whatever the bus says.
    m_parts.shortcut.startKeyGrab();
    Log::write({ u"StorageManager.shared.examples.isEmpty ", m_parts.storage.examples().isEmpty() });
    // Onboarding comes back only while the chosen service cannot be used (a key is
    // stored, or a model server and a model are chosen); a finished one does not.
    // A user who has stored nothing yet is welcomed even where their own tessary-server
    // makes the service usable: the first sample and the shortcut are still to learn.
    // The keyring answers a moment after the start: the decision waits for the keys.
    m_parts.storage.whenKeysLoaded(this, [this, showSettings] {
        const StorageManager &storage = m_parts.storage;
        const bool firstStart
            = !storage.onboardingFinished() && storage.apiKey().isEmpty() && storage.examples().isEmpty();
        if (!storage.serviceUsable() || firstStart)
            m_parts.windows.showOnboarding();
        else if (!showSettings)
            m_parts.windows.presence().setAccessory();
    });
    if (showSettings)
        m_parts.windows.showSettings();
    QTimer::singleShot(launchVersionCheckDelay, this, [this] {
        if (m_parts.updateService.shouldCheckForUpdates())
            m_parts.updateService.checkForUpdates(true);
    });
}

void AppDelegate::setupTray()
{
    if (m_tray)
        return;
    m_tray = std::make_unique<TrayMenu>(m_parts.updateService);
    m_parts.windows.setTrayShown(TrayMenu::hostFound());
    if (!TrayMenu::hostFound())
        qCInfo(lcLaunch) << "This desktop shows no tray icons: start `tessary` again, or choose Settings in"
                         << "its menu entry, to open Settings.";
    m_tray->setShortcutAvailable(m_parts.shortcut.isRunning());
    connect(&m_parts.shortcut, &Shortcut::availabilityChanged, m_tray.get(), &TrayMenu::setShortcutAvailable);
    m_tray->setDesktopShortcut(m_parts.windows.desktopShortcut());
    connect(&m_parts.windows, &AppWindows::desktopShortcutAdded, m_tray.get(),
        [this] { m_tray->setDesktopShortcut(m_parts.windows.desktopShortcut()); });
    // Queued: the menu closes before capture looks at the window in front.
    connect(m_tray.get(), &TrayMenu::rewriteRequested, &m_parts.sessions, &RewriteSessions::triggerHumanize,
        Qt::QueuedConnection);
    connect(m_tray.get(), &TrayMenu::settingsRequested, &m_parts.windows, &AppWindows::showSettings,
        Qt::QueuedConnection);
    connect(m_tray.get(), &TrayMenu::historyRequested, &m_parts.windows, &AppWindows::showHistory,
        Qt::QueuedConnection);
    m_tray->setUndoAvailable(m_parts.sessions.canUndo());
    connect(&m_parts.sessions, &RewriteSessions::canUndoChanged, m_tray.get(), &TrayMenu::setUndoAvailable);
    connect(m_tray.get(), &TrayMenu::undoRequested, &m_parts.sessions, &RewriteSessions::undoLastRewrite,
        Qt::QueuedConnection);
    connect(m_tray.get(), &TrayMenu::quitRequested, qApp, &QCoreApplication::quit, Qt::QueuedConnection);
}
