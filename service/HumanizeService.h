#pragma once

#include "Rewriter.h"

#include <QObject>

#include <chrono>

class QNetworkRequest;
class StorageManager;
class StreamDelegate;

// Sends a rewrite request to the service and hands its streamed reply to a
// StreamDelegate. One rewrite at a time: a new request cancels the one still running,
// whose owner hears that through its handle. Lives on the main thread.
class HumanizeService : public QObject, public Rewriter
{
    Q_OBJECT

public:
    // idleTimeout: how long a transfer may go without any data moving before it fails.
    HumanizeService(StorageManager &storage, std::chrono::milliseconds idleTimeout = std::chrono::seconds(60),
        QObject *parent = nullptr);
    ~HumanizeService() override;

    using Rewriter::humanize;
    std::shared_ptr<RewriteRequest> humanize(const QString &text, const QString &tone,
        const QString &instruction, RewriteCallbacks callbacks) override;

    // Characters a rewrite of `text` may have: far beyond any real one, so that a service
    // that never stops cannot fill the memory.
    static qsizetype maxResultLength(const QString &text);

private:
    std::shared_ptr<RewriteRequest> send(std::shared_ptr<RewriteRequest> handle,
        const QNetworkRequest &request, const QByteArray &body, qsizetype maxCharacters);

    StorageManager &m_storage;
    std::chrono::milliseconds m_idleTimeout;
    std::weak_ptr<RewriteRequest> m_currentTask;
};
