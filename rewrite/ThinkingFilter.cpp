#include "ThinkingFilter.h"

using namespace Qt::StringLiterals;

namespace {

struct Tag
{
    QStringView opener;
    QStringView closer;
};

constexpr Tag tags[] = { { u"<think>", u"</think>" }, { u"<thinking>", u"</thinking>" } };

qsizetype leadingSpace(QStringView text)
{
    qsizetype at = 0;
    while (at < text.size() && text.at(at).isSpace())
        ++at;
    return at;
}

} // namespace

ThinkingFilter::Split ThinkingFilter::take(const QString &content)
{
    switch (m_state) {
    case State::Passing:
        return { {}, content };
    case State::InBlock:
        return takeInBlock(content);
    case State::AfterBlock:
        return takeAfterBlock(content);
    case State::Undecided:
        break;
    }
    m_held += content;
    const QStringView start = QStringView(m_held).sliced(leadingSpace(m_held));
    if (start.isEmpty())
        return {};
    for (const Tag &tag : tags) {
        if (start.startsWith(tag.opener)) {
            const QString rest = start.sliced(tag.opener.size()).toString();
            m_state = State::InBlock;
            m_closer = tag.closer.toString();
            m_held.clear();
            return takeInBlock(rest);
        }
    }
    for (const Tag &tag : tags) {
        if (tag.opener.startsWith(start))
            return {}; // perhaps the rest of the tag is on its way
    }
    m_state = State::Passing;
    return { {}, std::exchange(m_held, {}) };
}

ThinkingFilter::Split ThinkingFilter::takeInBlock(const QString &content)
{
    m_held += content;
    const qsizetype end = m_held.indexOf(m_closer);
    if (end < 0) {
        // The block's last characters may be the start of its closing tag.
        const qsizetype keep = qMin(m_held.size(), m_closer.size() - 1);
        Split split { m_held.first(m_held.size() - keep), {} };
        m_held = m_held.last(keep);
        return split;
    }
    Split split { m_held.first(end), {} };
    const QString rest = m_held.sliced(end + m_closer.size());
    m_held.clear();
    m_state = State::AfterBlock;
    split.text = takeAfterBlock(rest).text;
    return split;
}

ThinkingFilter::Split ThinkingFilter::takeAfterBlock(const QString &content)
{
    // The blank lines between the thinking and the answer belong to neither.
    const qsizetype space = leadingSpace(content);
    if (space == content.size())
        return {};
    m_state = State::Passing;
    return { {}, content.sliced(space) };
}

ThinkingFilter::Split ThinkingFilter::finish()
{
    m_finished = true;
    switch (m_state) {
    case State::Undecided:
        m_state = State::Passing;
        return { {}, std::exchange(m_held, {}) };
    case State::InBlock:
        return { std::exchange(m_held, {}), {} };
    case State::AfterBlock:
    case State::Passing:
        break;
    }
    return {};
}
