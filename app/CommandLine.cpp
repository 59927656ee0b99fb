#include "CommandLine.h"

#include "BuildInfo.h"
#include "DBusService.h"

#include <QCommandLineParser>
#include <QCoreApplication>

#include <cstdio>

using namespace Qt::StringLiterals;

CommandLine CommandLine::parse(const QStringList &arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(u"Rewrites the selected text in your own voice."_s);
    const QCommandLineOption trigger(u"trigger"_s,
        u"Ask the running Tessary to rewrite the current selection "
        "(bind this to a shortcut where Ctrl+Alt+H cannot be grabbed)."_s);
    const QCommandLineOption version({ u"v"_s, u"version"_s }, u"Print the version and exit."_s);
    const QCommandLineOption help({ u"h"_s, u"help"_s }, u"Print this help and exit."_s);
    parser.addOptions({ trigger, version, help });

    if (!parser.parse(arguments))
        return { Action::Fail, parser.errorText() + u"\nTry 'tessary --help' for the options."_s };
    if (!parser.positionalArguments().isEmpty())
        return { Action::Fail,
            u"Unexpected argument '%1'.\nTry 'tessary --help' for the options."_s.arg(
                parser.positionalArguments().constFirst()) };
    if (parser.isSet(help))
        return { Action::ShowHelp, parser.helpText() };
    if (parser.isSet(version))
        return { Action::ShowVersion, u"Tessary "_s + BuildInfo::version() };
    if (parser.isSet(trigger))
        return { Action::Trigger, {} };
    return {};
}

std::optional<int> CommandLine::runWithoutWindow(int argc, char *argv[])
{
    QStringList arguments;
    for (int i = 0; i < argc; ++i)
        arguments.append(QString::fromLocal8Bit(argv[i]));
    const CommandLine commandLine = parse(arguments);
    switch (commandLine.action) {
    case Action::ShowVersion:
    case Action::ShowHelp:
        std::printf("%s\n", qPrintable(commandLine.output));
        return 0;
    case Action::Fail:
        std::fprintf(stderr, "tessary: %s\n", qPrintable(commandLine.output));
        return 2;
    case Action::Trigger: {
        // Only the session bus is needed to ask the running instance; no display.
        QCoreApplication client(argc, argv);
        if (DBusService::triggerRunningInstance())
            return 0;
        std::fprintf(stderr, "tessary: no running instance answered on the session bus\n");
        return 1;
    }
    case Action::Run:
        break;
    }
    return std::nullopt;
}
