#pragma once

#include <QColor>
#include <QList>
#include <QString>

// What a rewrite changed in the original, word by word: the rewrite's text with the
// words it added and the original's words it dropped, in reading order. Whitespace
// belongs to the word before it and never counts as a change.
class WordDiff
{
public:
    enum class Kind { Same, Inserted, Deleted };
    struct Segment
    {
        Kind kind;
        QString text;
        friend bool operator==(const Segment &, const Segment &) = default;
    };
    struct Result
    {
        QList<Segment> segments;
        int changedWords = 0; // a word (or sign) replaced by another counts once
        bool tooLong = false; // not compared: the segments are the rewrite, unmarked
    };

    // Beyond this many words and signs on either side, comparing would keep a core busy
    // for seconds; the rewrite is then shown unmarked.
    static constexpr qsizetype maxTokens = 6000;

    // partial: the rewrite is still arriving; the original's words after its end are
    // not yet dropped.
    static Result compare(const QString &original, const QString &result, bool partial = false);
    // Rich text for a Text item: insertions underlined, deletions struck through, each in
    // its colour, everything else escaped.
    static QString markup(const QList<Segment> &segments, const QColor &inserted, const QColor &deleted);
    static QString summary(const Result &result);
};
