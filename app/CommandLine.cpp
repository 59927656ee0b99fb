#include "CommandLine.h"

#include "BuildInfo.h"
#include "DBusService.h"

#include <QCommandLineParser>
#include <QCoreApplication>

#include <cstdio>

using namespace Qt::StringLiterals;

namespace {

// Qt names the program by the file it was started from, or "<executable_name>" before the
// application object exists: the help names the command the user types.
QString helpText(const QCommandLineParser &parser)
{
    QStringList lines = parser.helpText().split(u'\n');
    if (!lines.isEmpty() && lines.constFirst().startsWith(u"Usage: "_s))
        lines.first() = u"Usage: tessary [options]"_s;
    return lines.join(u'\n').trimmed();
}

} // namespace

CommandLine CommandLine::parse(const QStringList &arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(u"Rewrites the selected text in your own voice. Started while it runs, "
                                     "it opens the running Tessary's Settings."_s);
    const QCommandLineOption trigger(u"trigger"_s,
        u"Ask the running Tessary to rewrite the current selection "
        "(bind this to a shortcut where Ctrl+Alt+H cannot be grabbed)."_s);
    const QCommandLineOption instruction(u"instruction"_s,
        u"With --trigger: rewrite with these words instead of the tone (bind one shortcut per saved "
        "instruction)."_s,
        u"words"_s);
    const QCommandLineOption settings(
        u"settings"_s, u"Open Settings (in the running Tessary, or start it with Settings open)."_s);
    const QCommandLineOption version({ u"v"_s, u"version"_s }, u"Print the version and exit."_s);
    const QCommandLineOption help({ u"h"_s, u"help"_s }, u"Print this help and exit."_s);
    parser.addOptions({ trigger, instruction, settings, version, help });

    if (!parser.parse(arguments))
        return { Action::Fail, parser.errorText() + u"\nTry 'tessary --help' for the options."_s, {} };
    if (!parser.positionalArguments().isEmpty())
        return { Action::Fail,
            u"Unexpected argument '%1'.\nTry 'tessary --help' for the options."_s.arg(
                parser.positionalArguments().constFirst()),
            {} };
    if (parser.isSet(help))
        return { Action::ShowHelp, helpText(parser), {} };
    if (parser.isSet(version))
        return { Action::ShowVersion, u"Tessary "_s + BuildInfo::version(), {} };
    if (parser.isSet(trigger) && parser.isSet(settings))
        return { Action::Fail, u"--trigger and --settings ask for different things; give one."_s, {} };
    if (parser.isSet(instruction) && !parser.isSet(trigger))
        return { Action::Fail, u"--instruction goes with --trigger."_s, {} };
    if (parser.isSet(instruction) && parser.value(instruction).trimmed().isEmpty())
        return { Action::Fail, u"--instruction needs the words to rewrite with."_s, {} };
    if (parser.isSet(trigger))
        return { Action::Trigger, {}, parser.value(instruction).trimmed() };
    if (parser.isSet(settings))
        return { Action::ShowSettings, {}, {} };
    return {};
}

CommandLine CommandLine::parse(int argc, char *argv[])
{
    QStringList arguments;
    for (int i = 0; i < argc; ++i)
        arguments.append(QString::fromLocal8Bit(argv[i]));
    return parse(arguments);
}

std::optional<int> CommandLine::runWithoutWindow(int argc, char *argv[]) const
{
    switch (action) {
    case Action::ShowVersion:
    case Action::ShowHelp:
        std::printf("%s\n", qPrintable(output));
        return 0;
    case Action::Fail:
        std::fprintf(stderr, "tessary: %s\n", qPrintable(output));
        return 2;
    case Action::Trigger: {
        // Only the session bus is needed to ask the running instance; no display.
        QCoreApplication client(argc, argv);
        if (DBusService::askRunningInstance(DBusService::Request::Trigger, instruction))
            return 0;
        std::fprintf(stderr, "tessary: no running instance answered on the session bus\n");
        return 1;
    }
    case Action::ShowSettings: // like a plain start: the running instance, or this one, opens them
    case Action::Run:
        break;
    }
    return std::nullopt;
}
