#include "WordDiff.h"

#include <QObject>

#include <algorithm>
#include <dtl/dtl.hpp>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

struct Token
{
    QString word; // what is compared
    QString space; // the whitespace after it
};

// Words (letters, digits and the apostrophes inside them) and single signs, each with
// the whitespace that follows it.
std::vector<Token> tokenize(const QString &text)
{
    std::vector<Token> tokens;
    qsizetype i = 0;
    const qsizetype n = text.size();
    while (i < n && text.at(i).isSpace())
        ++i;
    const QString leading = text.first(i);
    while (i < n) {
        const qsizetype start = i;
        if (text.at(i).isLetterOrNumber()) {
            while (i < n
                && (text.at(i).isLetterOrNumber() || text.at(i).isMark()
                    || ((text.at(i) == u'\'' || text.at(i) == u'’') && i + 1 < n
                        && text.at(i + 1).isLetterOrNumber())))
                ++i;
        } else {
            i += text.at(i).isHighSurrogate() && i + 1 < n ? 2 : 1;
        }
        const qsizetype wordEnd = i;
        while (i < n && text.at(i).isSpace())
            ++i;
        tokens.push_back({ text.sliced(start, wordEnd - start), text.sliced(wordEnd, i - wordEnd) });
    }
    if (!leading.isEmpty() && !tokens.empty())
        tokens.front().word.prepend(leading);
    return tokens;
}

void append(QList<WordDiff::Segment> &segments, WordDiff::Kind kind, const QString &text)
{
    if (!segments.isEmpty() && segments.last().kind == kind)
        segments.last().text += text;
    else
        segments.append({ kind, text });
}

} // namespace

WordDiff::Result WordDiff::compare(const QString &original, const QString &result, bool partial)
{
    const std::vector<Token> before = tokenize(original);
    const std::vector<Token> after = tokenize(result);
    Result diff;
    if (qsizetype(before.size()) > maxTokens || qsizetype(after.size()) > maxTokens) {
        diff.tooLong = true;
        if (!result.isEmpty())
            diff.segments.append({ Kind::Same, result });
        return diff;
    }

    std::vector<QString> a;
    std::vector<QString> b;
    a.reserve(before.size());
    b.reserve(after.size());
    for (const Token &token : before)
        a.push_back(token.word.trimmed());
    for (const Token &token : after)
        b.push_back(token.word.trimmed());
    dtl::Diff<QString, std::vector<QString>> engine(a, b);
    engine.compose();

    struct Op
    {
        Kind kind;
        const Token *token;
    };
    std::vector<Op> ops;
    for (const auto &[word, info] : engine.getSes().getSequence()) {
        if (info.type == dtl::SES_DELETE)
            ops.push_back({ Kind::Deleted, &before.at(std::size_t(info.beforeIdx - 1)) });
        else
            ops.push_back({ info.type == dtl::SES_ADD ? Kind::Inserted : Kind::Same,
                &after.at(std::size_t(info.afterIdx - 1)) });
    }
    // In each change the old words come first, then the new ones, whichever order the
    // engine found them in.
    for (auto run = ops.begin(); run != ops.end();) {
        const auto isSame = [](const Op &op) { return op.kind == Kind::Same; };
        run = std::find_if_not(run, ops.end(), isSame);
        const auto end = std::find_if(run, ops.end(), isSame);
        std::stable_partition(run, end, [](const Op &op) { return op.kind == Kind::Deleted; });
        run = end;
    }
    if (partial) {
        // After the last kept word, the original's words are still to be rewritten: as
        // many as have come in their place count as replaced, the rest is not dropped yet.
        const auto lastSame
            = std::find_if(ops.rbegin(), ops.rend(), [](const Op &op) { return op.kind == Kind::Same; });
        const auto tail = lastSame.base();
        const auto inserted
            = std::count_if(tail, ops.end(), [](const Op &op) { return op.kind == Kind::Inserted; });
        auto deletedKept = inserted;
        ops.erase(
            std::remove_if(tail, ops.end(),
                [&deletedKept](const Op &op) { return op.kind == Kind::Deleted && deletedKept-- <= 0; }),
            ops.end());
    }

    // Words and signs alike: a comma put in is a change the user looks for.
    int inserted = 0;
    int deleted = 0;
    for (const Op &op : ops) {
        QString text = op.token->word + op.token->space;
        if (op.kind == Kind::Same) {
            diff.changedWords += std::max(inserted, deleted);
            inserted = deleted = 0;
        } else {
            ++(op.kind == Kind::Inserted ? inserted : deleted);
        }
        // A dropped word after one that ends the rewrite still stands apart from it.
        if (op.kind == Kind::Deleted && !diff.segments.isEmpty() && diff.segments.last().kind != Kind::Deleted
            && !diff.segments.last().text.back().isSpace())
            text.prepend(u' ');
        append(diff.segments, op.kind, text);
    }
    diff.changedWords += std::max(inserted, deleted);
    return diff;
}

QString WordDiff::markup(const QList<Segment> &segments, const QColor &inserted, const QColor &deleted)
{
    QString html;
    for (const Segment &segment : segments) {
        QString text = segment.text.toHtmlEscaped();
        text.replace(u'\n', u"<br>"_s);
        switch (segment.kind) {
        case Kind::Same:
            html += text;
            break;
        case Kind::Inserted:
            html += u"<u><font color=\"%1\">%2</font></u>"_s.arg(inserted.name(), text);
            break;
        case Kind::Deleted:
            html += u"<s><font color=\"%1\">%2</font></s>"_s.arg(deleted.name(), text);
            break;
        }
    }
    return html;
}

QString WordDiff::summary(const Result &result)
{
    if (result.tooLong)
        return QObject::tr("Too long to mark the changes");
    if (result.changedWords == 0)
        return QObject::tr("No words changed");
    return result.changedWords == 1 ? QObject::tr("1 word changed")
                                    : QObject::tr("%1 words changed").arg(result.changedWords);
}
