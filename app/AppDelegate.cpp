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
#include <QTimer>

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

void AppDelegate::applicationDidFinishLaunching()
{
    Log::write(u">>> LAUNCHED");
    m_parts.windows.presence().setRegular();
    setupTray();
    // The D-Bus entry (what other programs hand over) was registered by main() before
    // anything else, as it also keeps a second instance from starting.
    if (m_parts.accessibility && m_parts.accessibility->isTrusted(true))
        m_parts.shortcut.startKeyGrab();
    else
        m_parts.shortcut.pollAccessibilityPermission();
    Log::write({ u"StorageManager.shared.examples.isEmpty ", m_parts.storage.examples().isEmpty() });
    // Onboarding comes back only while the chosen service cannot be used (a key is
    // stored, or a model server and a model are chosen); a finished one does not.
    // A user who has stored nothing yet is welcomed even where their own tessary-server
    // makes the service usable: the first sample and the shortcut are still to learn.
    // The keyring answers a moment after the start: the decision waits for the keys.
    m_parts.storage.whenKeysLoaded(this, [this] {
        const StorageManager &storage = m_parts.storage;
        const bool firstStart
            = !storage.onboardingFinished() && storage.apiKey().isEmpty() && storage.examples().isEmpty();
        if (!storage.serviceUsable() || firstStart)
            m_parts.windows.showOnboarding();
        else
            m_parts.windows.presence().setAccessory();
    });
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
    connect(m_tray.get(), &TrayMenu::quitRequested, qApp, &QCoreApplication::quit, Qt::QueuedConnection);
}
