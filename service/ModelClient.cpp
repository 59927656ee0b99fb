#include "ModelClient.h"

#include "FailureAdvice.h"
#include "Prompt.h"
#include "StorageManager.h"

#include <QUrl>

using namespace Qt::StringLiterals;

ModelClient::ModelClient(const StorageManager &storage)
    : m_storage(storage)
{
}

std::optional<ModelClient::Prepared> ModelClient::prepare(const QString &text, const QString &tone,
    const QString &instruction, std::chrono::milliseconds idleTimeout, Failure *problem) const
{
    QString base = m_storage.modelBase().trimmed();
    while (base.endsWith(u'/'))
        base.chop(1);
    const QUrl url(base + u"/chat/completions"_s, QUrl::StrictMode);
    if (base.isEmpty() || m_storage.model().isEmpty()) {
        *problem = FailureAdvice::noModelChosen();
        return std::nullopt;
    }
    if (!url.isValid() || url.host().isEmpty() || (url.scheme() != "http"_L1 && url.scheme() != "https"_L1)) {
        *problem = FailureAdvice::invalidAddress(base);
        return std::nullopt;
    }

    Prepared prepared { QNetworkRequest(url), {} };
    prepared.request.setTransferTimeout(int(idleTimeout.count()));
    prepared.request.setRawHeader("Content-Type", "application/json");
    if (!m_storage.modelKey().isEmpty())
        prepared.request.setRawHeader("Authorization", "Bearer " + m_storage.modelKey().toUtf8());
    prepared.body = chatCompletionBody(
        promptMessages(m_storage.examples(), tone, text, sampleBudget, instruction), m_storage.model());
    return prepared;
}
