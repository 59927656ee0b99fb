#pragma once

#include <QString>
#include <QStringList>

#include <optional>

// What the user asked for on the command line.
struct CommandLine
{
    enum class Action { Run, Trigger, ShowSettings, ShowVersion, ShowHelp, Fail };

    Action action = Action::Run;
    QString output; // what to print for ShowVersion, ShowHelp and Fail
    QString instruction; // Trigger: the user's own words instead of the tone; empty for none

    static CommandLine parse(const QStringList &arguments);
    static CommandLine parse(int argc, char *argv[]);
    // Carries out what needs no window (--version, --help, --trigger, a wrong option) and
    // returns the exit code; nullopt when the program is to run. Works before the
    // application object exists, so without a display.
    std::optional<int> runWithoutWindow(int argc, char *argv[]) const;
};
