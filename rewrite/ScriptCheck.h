#pragma once

#include <QChar>
#include <QString>

// A cheap look at which writing system a text is in, from the Unicode scripts of its
// letters: enough to notice a rewrite that came back in another language's script
// (Cyrillic for Latin, Latin for Han), not to tell languages of one script apart.
namespace ScriptCheck {

// The script of most of the text's letters; QChar::Script_Unknown when it has too few
// letters to tell. Japanese kana count as Han, as they share their texts.
QChar::Script dominantScript(const QString &text);

// Both texts have enough letters, and most of them are in different scripts.
bool changedScript(const QString &original, const QString &result);

} // namespace ScriptCheck
