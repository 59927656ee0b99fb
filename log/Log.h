#pragma once

#include <QString>
#include <QStringList>

// The program's event log: one line per event on standard output, flushed at once,
// so a user (or a test) reading a pipe sees each event as it happens.
// Diagnostics of our own go to stderr through logging categories instead.
namespace Log {

// How much of the user's own words a line may carry. Started from the desktop or at
// login, standard output ends up in the system journal, where private text would stay.
enum class Detail {
    Full, // values as they are: a terminal, a pipe the caller reads, TESSARY_LOG=full
    Private, // values that carry the user's content are replaced by their length
};

// Decided once at start-up: TESSARY_LOG=full or =private wins; otherwise Private when
// standard output is the journal (JOURNAL_STREAM names it) or a desktop entry launched
// us (GIO_LAUNCHED_DESKTOP_FILE), Full for a terminal and for a caller's own pipe.
// `stdoutDeviceInode` is "device:inode" of standard output, as systemd writes it.
Detail chooseDetail(const QStringList &environment, const QString &stdoutDeviceInode);
Detail detailFromProcess();
void setDetail(Detail detail);
Detail detail();

// Every value that carries the user's content passes through here: selected text,
// fragments, stream lines, events, a key's prefix.
QString content(const QString &value);

// "<glyph> [<tag>] <message>"
void write(const QString &glyph, const QString &tag, const QString &message);

// A line without glyph or tag, written as given.
void write(const QString &line);

} // namespace Log
