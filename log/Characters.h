#pragma once

#include <QString>

// Lengths and beginnings of a text as its reader sees them. Log lines and previews show
// the start of the user's words: never half an emoji, never half a surrogate pair.
namespace Characters {

// User-perceived characters: "é" typed as e + combining accent, or 👋🏽, count once.
qsizetype count(const QString &text);
// The first `count` user-perceived characters (all of a shorter text).
QString first(const QString &text, qsizetype count);
// At most `units` UTF-16 code units, one more rather than a pair cut in half: a cheap
// bound for texts of any size.
QString upTo(const QString &text, qsizetype units);

} // namespace Characters
