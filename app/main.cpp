#include "AppDelegate.h"
#include "BuildInfo.h"
#include "CommandLine.h"
#include "DBusService.h"
#include "KeyStore.h"
#include "MakePlatform.h"
#include "SceneGraph.h"
#include "StorageManager.h"
#include "UpdateAlert.h"

#include <QApplication>

#include <cstdio>

int main(int argc, char *argv[])
{
    // Parsed before the application object exists: --version and --help must work
    // without a display.
    QStringList arguments;
    for (int i = 0; i < argc; ++i)
        arguments.append(QString::fromLocal8Bit(argv[i]));
    const CommandLine commandLine = CommandLine::parse(arguments);
    switch (commandLine.action) {
    case CommandLine::Action::ShowVersion:
    case CommandLine::Action::ShowHelp:
        std::printf("%s\n", qPrintable(commandLine.output));
        return 0;
    case CommandLine::Action::Fail:
        std::fprintf(stderr, "tessary: %s\n", qPrintable(commandLine.output));
        return 2;
    case CommandLine::Action::Trigger: {
        // Only the session bus is needed to ask the running instance; no display.
        QCoreApplication client(argc, argv);
        if (DBusService::triggerRunningInstance())
            return 0;
        std::fprintf(stderr, "tessary: no running instance answered on the session bus\n");
        return 1;
    }
    case CommandLine::Action::Run:
        break;
    }

    SceneGraph::chooseRenderer();
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Tessary"));
    QApplication::setApplicationVersion(BuildInfo::version());
    QApplication::setQuitOnLastWindowClosed(false); // lives in the tray

    // One instance per session: a second start leaves the running one in charge.
    DBusService dbus;
    if (!dbus.registerService()) {
        std::fprintf(
            stderr, "tessary: already running (or no session bus); use `tessary --trigger` to rewrite\n");
        return 0;
    }

    Platform platform = makePlatform();
    // Keys live in the desktop keyring; a tessary-server of this user's pairs by its token file.
    KeyStore keys(QStringLiteral("Tessary"));
    StorageManager storage(StorageManager::defaultFilePath(), QStringLiteral(TESSARY_DEFAULT_API_BASE), &keys,
        StorageManager::defaultServerTokenPath());
    AppDelegate delegate(platform, storage);
    QObject::connect(&dbus, &DBusService::triggerRequested, &delegate, &AppDelegate::triggerHumanize);
    QObject::connect(&dbus, &DBusService::humanizeRequested, &delegate, &AppDelegate::humanizeSelectedText);
    UpdateAlert updateAlert(delegate.updateService());
    delegate.applicationDidFinishLaunching();
    return QApplication::exec();
}
