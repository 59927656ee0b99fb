#pragma once

#include <QString>

#include <functional>

// How one rewrite reports back, always on the main thread and in stream order:
// any number of fragments, then at most one outcome (complete, error or cancelled).
struct RewriteCallbacks
{
    std::function<void(const QString &fragment)> onToken;
    std::function<void()> onComplete;
    std::function<void(const QString &message)> onError;
    // The one who asked cancelled it; nothing of it arrives after this.
    std::function<void()> onCancelled;
};
