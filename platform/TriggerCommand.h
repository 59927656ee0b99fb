#pragma once

#include <QString>

// The shell command a desktop runs to make the running Tessary rewrite. It is
// `tessary --trigger` when the `tessary` on PATH is this very program, as for an installed
// package: the binding then outlives upgrades and a move between /usr and /usr/local.
// Otherwise (`make run` from a build tree, which is on nobody's PATH) it is the program's
// absolute path, quoted for the shell, since a bare name would run nothing.
QString triggerCommand(const QString &program);
