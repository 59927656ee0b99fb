#include "AppDelegate.h"
#include "BuildInfo.h"
#include "CommandLine.h"
#include "MakePlatform.h"
#include "StorageManager.h"

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
    case CommandLine::Action::Trigger:
    case CommandLine::Action::Run:
        break;
    }

    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Tessary"));
    QApplication::setApplicationVersion(BuildInfo::version());
    QApplication::setQuitOnLastWindowClosed(false); // lives in the tray

    Platform platform = makePlatform();
    StorageManager storage(StorageManager::defaultFilePath(), QStringLiteral(TESSARY_DEFAULT_API_BASE));
    AppDelegate delegate(platform, storage);
    return QApplication::exec();
}
