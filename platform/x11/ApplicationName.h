#pragma once

#include "X11Connection.h"

#include <QStringList>

// The name a user knows a window's application by: the Name of its desktop entry,
// else its window class, else the process's command name.
QString applicationName(
    const std::optional<WindowClass> &windowClass, qint64 pid, const QStringList &applicationDirs);

// Where desktop entries live on this system, most important first.
QStringList applicationDirs();
