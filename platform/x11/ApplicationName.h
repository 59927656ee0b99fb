#pragma once

#include "X11Connection.h"

#include <QList>
#include <QLocale>
#include <QStringList>

// What a desktop entry says about its application: only what naming a window needs.
struct DesktopEntry
{
    QString name;
    QString startupWmClass;
    QString fileBase; // the file's name without ".desktop", lower case
};

// Every desktop entry with a name, most important directory first, named in the user's
// language where the entry has it (Name[de_CH], then Name[de], then Name). Reads files:
// run it once, away from the window thread. locale as QLocale names it: "de_CH", "C".
QList<DesktopEntry> readDesktopEntries(
    const QStringList &applicationDirs, const QString &locale = QLocale::system().name());

// The name a user knows a window's application by: the Name of its desktop entry,
// else its window class, else the process's command name.
QString applicationName(
    const std::optional<WindowClass> &windowClass, qint64 pid, const QList<DesktopEntry> &entries);
QString applicationName(const std::optional<WindowClass> &windowClass, qint64 pid,
    const QStringList &applicationDirs, const QString &locale = QLocale::system().name());

// Where desktop entries live on this system, most important first.
QStringList applicationDirs();
