#pragma once

#include "Platform.h"

#include <QList>

// Records synthesized keys. onPost stands in for the application that receives them
// (copying its selection, pasting); posted is answered at once unless holdPosts is
// set, in which case finishPosts() answers the waiting ones.
class FakeKeySynth : public KeySynth
{
public:
    struct Key
    {
        int code;
        quint64 flags;
        bool operator==(const Key &) const = default;
    };

    QList<Key> keys;
    std::function<void(int keyCode, quint64 flags)> onPost;
    bool holdPosts = false;
    bool typing = true; // false: a desktop that lets no program type into another

    bool canType() const override { return typing; }

    void post(int keyCode, quint64 flags, std::function<void()> posted) override;
    void finishPosts();

private:
    QList<std::function<void()>> m_waiting;
};
