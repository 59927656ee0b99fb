#pragma once

#include <QString>
#include <QStringList>

// What the user asked for on the command line.
struct CommandLine
{
    enum class Action { Run, Trigger, ShowVersion, ShowHelp, Fail };

    Action action = Action::Run;
    QString output; // what to print for ShowVersion, ShowHelp and Fail

    static CommandLine parse(const QStringList &arguments);
};
