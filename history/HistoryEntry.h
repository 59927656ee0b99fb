#pragma once

#include <QDateTime>
#include <QList>
#include <QMetaType>
#include <QString>

// One rewrite as the history keeps it. `instruction` is the tone chosen or the
// instruction typed; `application` the program the text came from.
struct HistoryEntry
{
    qint64 id = 0; // given by the store; 0 until stored
    QString original;
    QString result;
    QString instruction;
    QString application;
    QDateTime time;

    friend bool operator==(const HistoryEntry &, const HistoryEntry &) = default;
};

// Why the history cannot be read or written now, in a sentence the user can act on.
struct HistoryFailure
{
    enum class Kind { None, Damaged, Locked, Unavailable };
    Kind kind = Kind::None;
    QString message;

    explicit operator bool() const { return kind != Kind::None; }
};

Q_DECLARE_METATYPE(HistoryEntry)
Q_DECLARE_METATYPE(HistoryFailure)
