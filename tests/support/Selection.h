#pragma once

#include <QString>
#include <QStringList>

// The keys (as xdotool names them) that select part within text, from the start of
// the document, as a user would with the keyboard.
inline QStringList keysSelecting(const QString &text, const QString &part)
{
    QStringList names { QStringLiteral("ctrl+Home") };
    const qsizetype at = text.indexOf(part);
    for (qsizetype i = 0; i < at; ++i)
        names.append(QStringLiteral("Right"));
    for (qsizetype i = 0; i < part.size(); ++i)
        names.append(QStringLiteral("shift+Right"));
    return names;
}
