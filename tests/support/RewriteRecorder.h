#pragma once

#include "RewriteCallbacks.h"

#include <QStringList>

// Records what a rewrite reported, in order, as "token:<fragment>", "error:<message>",
// "complete", "cancelled" and "thinking:<fragment>", so a test compares one list; the
// failures themselves are kept too.
struct RewriteRecorder
{
    QStringList calls;
    QList<Failure> failures;

    RewriteCallbacks callbacks()
    {
        return { [this](const QString &fragment) { calls.append(QStringLiteral("token:") + fragment); },
            [this] { calls.append(QStringLiteral("complete")); },
            [this](const Failure &failure) {
                calls.append(QStringLiteral("error:") + failure.message);
                failures.append(failure);
            },
            [this] { calls.append(QStringLiteral("cancelled")); },
            [this](const QString &fragment) { calls.append(QStringLiteral("thinking:") + fragment); } };
    }
};
