#pragma once

#include "Failure.h"

#include <QString>

#include <functional>

// How one rewrite reports back, always on the main thread and in stream order:
// any number of fragments, then at most one outcome (complete, error or cancelled).
struct RewriteCallbacks
{
    std::function<void(const QString &fragment)> onToken;
    std::function<void()> onComplete;
    std::function<void(const Failure &failure)> onError;
    // The one who asked cancelled it; nothing of it arrives after this.
    std::function<void()> onCancelled;
    // What a reasoning model thinks before it answers; never part of the result.
    std::function<void(const QString &fragment)> onReasoning {};
};
