#include "FakeKeySynth.h"

#include <utility>

void FakeKeySynth::post(int keyCode, quint64 flags, std::function<void()> posted)
{
    keys.append({ keyCode, flags });
    if (onPost)
        onPost(keyCode, flags);
    if (holdPosts)
        m_waiting.append(std::move(posted));
    else if (posted)
        posted();
}

void FakeKeySynth::finishPosts()
{
    const auto waiting = std::exchange(m_waiting, {});
    for (const auto &posted : waiting) {
        if (posted)
            posted();
    }
}
