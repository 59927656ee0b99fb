#pragma once

#include <QString>

// The program's event log: one line per event on standard output, flushed at once,
// so a user (or a test) reading a pipe sees each event as it happens.
// Diagnostics of our own go to stderr through logging categories instead.
namespace Log {

// "<glyph> [<tag>] <message>"
void write(const QString &glyph, const QString &tag, const QString &message);

// A line without glyph or tag, written as given.
void write(const QString &line);

} // namespace Log
