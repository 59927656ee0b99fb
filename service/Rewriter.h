#pragma once

#include "RewriteCallbacks.h"

// What the popup needs of the rewrite service: start a rewrite, which cancels the one
// still running. HumanizeService is the real one.
class Rewriter
{
public:
    virtual ~Rewriter() = default;
    virtual void humanize(const QString &text, const QString &tone, RewriteCallbacks callbacks) = 0;
};
