#include "AccessibilityHelper.h"
#include "AppDelegate.h"
#include "AppWindows.h"
#include "BuildInfo.h"
#include "CommandLine.h"
#include "DBusService.h"
#include "HistoryStore.h"
#include "HumanizeService.h"
#include "KeyStore.h"
#include "Log.h"
#include "MakePlatform.h"
#include "QmlEngine.h"
#include "QuitOnSignal.h"
#include "RewriteSessions.h"
#include "SceneGraph.h"
#include "Shortcut.h"
#include "StorageManager.h"
#include "UpdateAlert.h"
#include "UpdateService.h"

#include <QApplication>

#include <cstdio>
#include <malloc.h>

int main(int argc, char *argv[])
{
    const CommandLine commandLine = CommandLine::parse(argc, argv);
    if (const std::optional<int> exitCode = commandLine.runWithoutWindow(argc, argv))
        return *exitCode;

    // Large blocks (a text handed over D-Bus, a long reply) are mapped on their own and go
    // back to the system when freed. Left to itself the allocator raises this bound after
    // the first such block, and a flood of large texts would stay resident for good.
    mallopt(M_MMAP_THRESHOLD, 1024 * 1024);
    SceneGraph::chooseRenderer();
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Tessary"));
    QApplication::setApplicationVersion(BuildInfo::version());
    QApplication::setQuitOnLastWindowClosed(false); // lives in the tray
    QuitOnSignal quitOnSignal;
    Log::setDetail(Log::detailFromProcess());

    // One instance per session: a second start opens the running one's Settings, the way
    // to them on desktops without a tray.
    DBusService dbus;
    if (!dbus.registerService()) {
        if (DBusService::askRunningInstance(DBusService::Request::ShowSettings))
            return 0;
        std::fprintf(
            stderr, "tessary: cannot reach the session bus, or the running Tessary does not answer\n");
        return 1;
    }

    Platform platform = makePlatform();
    // Keys live in the desktop keyring; a tessary-server of this user's pairs by its token file.
    KeyStore keys(QStringLiteral("Tessary"));
    StorageManager storage(StorageManager::defaultFilePath(), QStringLiteral(TESSARY_DEFAULT_API_BASE), &keys,
        StorageManager::defaultServerTokenPath());
    UpdateService updates(storage, BuildInfo::forUpdateCheck());
    UpdateAlert updateAlert(updates);
    HumanizeService rewriter(storage);
    AccessibilityHelper textAccess(platform);
    QmlEngine qml; // popups, settings and onboarding: one engine, made with the first window
    RewriteSessions sessions(
        { textAccess, platform.workspace.get(), *platform.pasteboard, rewriter, &storage }, qml);
    Shortcut shortcut(platform.keyboardGrab.get());
    // Rewrites kept on this machine, as long as the user keeps them.
    HistoryStore history(HistoryStore::defaultFilePath());
    const auto followSettings = [&] {
        history.setEnabled(storage.historyEnabled());
        history.setRetentionDays(storage.historyDays());
    };
    followSettings();
    QObject::connect(&storage, &StorageManager::historyEnabledChanged, &history, followSettings);
    QObject::connect(&storage, &StorageManager::historyDaysChanged, &history, followSettings);
    AppWindows windows(storage, updates, platform.workspace.get(), qml, platform.desktopShortcut.get());
    windows.setAccessibility(platform.accessibility.get());
    windows.setHistoryStore(&history);
    AppDelegate delegate({ windows, shortcut, sessions, updates, storage });

    QObject::connect(&shortcut, &Shortcut::triggered, &sessions, &RewriteSessions::triggerHumanize);
    QObject::connect(&dbus, &DBusService::triggerRequested, &sessions, &RewriteSessions::triggerHumanize);
    QObject::connect(&dbus, &DBusService::triggerWithInstructionRequested, &sessions,
        &RewriteSessions::triggerWithInstruction);
    // Each saved instruction with a shortcut of its own rewrites the selection with it.
    const auto followInstructionShortcuts = [&] {
        shortcut.setInstructionShortcuts(storage.savedInstructions(), storage.instructionShortcuts());
    };
    followInstructionShortcuts();
    QObject::connect(
        &storage, &StorageManager::savedInstructionsChanged, &shortcut, followInstructionShortcuts);
    QObject::connect(
        &storage, &StorageManager::instructionShortcutsChanged, &shortcut, followInstructionShortcuts);
    QObject::connect(
        &shortcut, &Shortcut::instructionTriggered, &sessions, &RewriteSessions::triggerWithInstruction);
    QObject::connect(
        &dbus, &DBusService::humanizeRequested, &sessions, &RewriteSessions::humanizeSelectedText);
    QObject::connect(&dbus, &DBusService::undoRequested, &sessions, &RewriteSessions::undoLastRewrite);
    QObject::connect(&sessions, &RewriteSessions::canUndoChanged, &dbus, &DBusService::setUndoAvailable);
    QObject::connect(&sessions, &RewriteSessions::settingsRequested, &windows, &AppWindows::showSettings);
    QObject::connect(&dbus, &DBusService::settingsRequested, &windows, &AppWindows::showSettings);
    QObject::connect(&windows, &AppWindows::rewriteRequested, &sessions, &RewriteSessions::rewriteAgain);
    QObject::connect(&sessions, &RewriteSessions::rewriteFinished, &history, &HistoryStore::record);
    delegate.applicationDidFinishLaunching(commandLine.action == CommandLine::Action::ShowSettings);
    return QApplication::exec();
}
