#include "Characters.h"

#include <QTextBoundaryFinder>

qsizetype Characters::count(const QString &text)
{
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text);
    qsizetype count = 0;
    while (finder.toNextBoundary() > 0)
        ++count;
    return count;
}

QString Characters::first(const QString &text, qsizetype count)
{
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text);
    qsizetype end = 0;
    for (qsizetype i = 0; i < count; ++i) {
        const qsizetype next = finder.toNextBoundary();
        if (next < 0)
            break;
        end = next;
    }
    return text.left(end);
}

QString Characters::upTo(const QString &text, qsizetype units)
{
    if (text.size() > units && units > 0 && text.at(units - 1).isHighSurrogate())
        ++units;
    return text.left(units);
}
