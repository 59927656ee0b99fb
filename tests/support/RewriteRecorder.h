#pragma once

#include "RewriteCallbacks.h"

#include <QStringList>

// Records what a rewrite reported, in order, as "token:<fragment>", "error:<message>",
// "complete" and "cancelled", so a test compares one list.
struct RewriteRecorder
{
    QStringList calls;

    RewriteCallbacks callbacks()
    {
        return { [this](const QString &fragment) { calls.append(QStringLiteral("token:") + fragment); },
            [this] { calls.append(QStringLiteral("complete")); },
            [this](const QString &message) { calls.append(QStringLiteral("error:") + message); },
            [this] { calls.append(QStringLiteral("cancelled")); } };
    }
};
