#include "CommandLine.h"

#include "BuildInfo.h"

#include <QCommandLineParser>

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
