#include "ScriptCheck.h"

#include <QHash>

namespace ScriptCheck {

namespace {

// Fewer letters than this say nothing: a name or an abbreviation in another script.
constexpr int minimumLetters = 8;

QChar::Script groupOf(char32_t codePoint)
{
    const QChar::Script script = QChar::script(codePoint);
    if (script == QChar::Script_Hiragana || script == QChar::Script_Katakana)
        return QChar::Script_Han;
    return script;
}

} // namespace

QChar::Script dominantScript(const QString &text)
{
    QHash<int, int> counts;
    int letters = 0;
    for (const char32_t codePoint : text.toUcs4()) {
        if (!QChar::isLetter(codePoint))
            continue;
        const QChar::Script script = groupOf(codePoint);
        if (script <= QChar::Script_Common) // Unknown, Inherited and Common name no writing system
            continue;
        ++counts[script];
        ++letters;
    }
    if (letters < minimumLetters)
        return QChar::Script_Unknown;
    int best = QChar::Script_Unknown;
    int bestCount = 0;
    for (auto count = counts.cbegin(); count != counts.cend(); ++count) {
        if (count.value() > bestCount) {
            best = count.key();
            bestCount = count.value();
        }
    }
    return QChar::Script(best);
}

bool changedScript(const QString &original, const QString &result)
{
    const QChar::Script before = dominantScript(original);
    const QChar::Script after = dominantScript(result);
    return before != QChar::Script_Unknown && after != QChar::Script_Unknown && before != after;
}

} // namespace ScriptCheck
