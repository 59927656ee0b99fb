#pragma once

#include <QString>

// Holds back the thinking a reasoning model writes inline, as a <think>…</think> or
// <thinking>…</thinking> block at the start of its answer, however the fragments cut the
// tags. What comes before the answer is decided once: content that does not open with
// such a block passes untouched from its first character on.
class ThinkingFilter
{
public:
    struct Split
    {
        QString reasoning;
        QString text;
    };

    // The next piece of the content, split into thinking and answer.
    Split take(const QString &content);
    // The content ended: what was still held back. A block that never closed stays
    // thinking: none of it is ever answer.
    Split finish();

    bool thinking() const { return m_state == State::InBlock; }
    bool unclosed() const { return m_finished && m_state == State::InBlock; }

private:
    enum class State { Undecided, InBlock, AfterBlock, Passing };

    Split takeInBlock(const QString &content);
    Split takeAfterBlock(const QString &content);

    State m_state = State::Undecided;
    QString m_held; // the start while undecided, or the block's last characters
    QString m_closer;
    bool m_finished = false;
};
