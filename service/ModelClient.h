#pragma once

#include "Failure.h"
#include "Prompt.h"

#include <QByteArray>
#include <QNetworkRequest>
#include <QString>

#include <chrono>
#include <optional>

class StorageManager;

// The rewrite request for a model server spoken to directly (a local one, or any
// OpenAI-compatible service): the prompt is built here from the samples and the tone,
// with the code tessary-server uses, and the reply streams in the same event format.
class ModelClient
{
public:
    struct Prepared
    {
        QNetworkRequest request;
        QByteArray body;
    };

    // Characters of writing samples put into one prompt, newest kept; as the server does.
    static constexpr int sampleBudget = defaultSampleBudget;

    explicit ModelClient(const StorageManager &storage);

    // The request, or, when no model server or model is chosen, what to do (in `problem`).
    std::optional<Prepared> prepare(const QString &text, const QString &tone, const QString &instruction,
        std::chrono::milliseconds idleTimeout, Failure *problem) const;

private:
    const StorageManager &m_storage;
};
