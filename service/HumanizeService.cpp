#include "HumanizeService.h"

#include "Characters.h"
#include "FailureAdvice.h"
#include "Log.h"
#include "ModelClient.h"
#include "StorageManager.h"
#include "StreamDelegate.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkRequest>
#include <QPointer>

using namespace Qt::StringLiterals;

namespace {

constexpr Log::Literal tag = u"HumanizeService";

} // namespace

HumanizeService::HumanizeService(
    StorageManager &storage, std::chrono::milliseconds idleTimeout, QObject *parent)
    : QObject(parent)
    , m_storage(storage)
    , m_idleTimeout(idleTimeout)
{
}

// The delegates are children: each stops its transfer thread as it goes.
HumanizeService::~HumanizeService() = default;

std::shared_ptr<RewriteRequest> HumanizeService::humanize(
    const QString &text, const QString &tone, RewriteCallbacks callbacks)
{
    auto handle = std::make_shared<RewriteRequest>(std::move(callbacks));
    Log::write(u"🚀", tag, u"Starting humanize request...");
    Log::write(u"📝", tag, { u"Text length: ", Characters::count(text), u", Tone: ", Log::Public(tone) });
    if (const auto running = std::exchange(m_currentTask, {}).lock())
        running->cancel();

    // A model server spoken to directly gets the prompt built here, not the samples.
    if (m_storage.provider() != StorageManager::Provider::TessaryService) {
        QString problem;
        const auto prepared = ModelClient(m_storage).prepare(text, tone, m_idleTimeout, &problem);
        if (!prepared) {
            handle->fail(problem);
            return handle;
        }
        Log::write(u"📤", tag,
            { u"Request prepared, sending to: ", Log::Public(prepared->request.url().toString()) });
        return send(handle, prepared->request, prepared->body);
    }

    const QString urlString = m_storage.apiBase() + u"/chat/completions"_s;
    const QUrl url(urlString, QUrl::StrictMode);
    if (!url.isValid() || url.isRelative() || url.host().isEmpty()) {
        Log::write(u"❌", tag, { u"Invalid API URL: ", Log::Public(urlString) });
        handle->fail(u"Invalid API URL"_s);
        return handle;
    }

    QNetworkRequest request(url);
    request.setTransferTimeout(int(m_idleTimeout.count()));
    request.setRawHeader("Content-Type", "application/json");
    // The stored key, or the token of the user's own tessary-server on this machine.
    const QString apiKey = m_storage.credential();
    if (!apiKey.isEmpty()) {
        request.setRawHeader("Authorization", "Bearer " + apiKey.toUtf8());
        Log::write(u"🔑", tag, { u"Using API key: ", Log::Private(apiKey.left(8)), u"..." });
    }

    const QJsonObject message { { u"role"_s, u"user"_s },
        { u"content"_s, u"Rewrite this in my voice:\n\n"_s + text } };
    const QJsonObject body { { u"stream"_s, true },
        { u"examples"_s, QJsonArray::fromStringList(m_storage.examples()) }, { u"tone"_s, tone },
        { u"messages"_s, QJsonArray { message } } };
    Log::write(u"📤", tag, { u"Request prepared, sending to: ", Log::Public(url.toString()) });
    return send(handle, request, QJsonDocument(body).toJson(QJsonDocument::Compact));
}

std::shared_ptr<RewriteRequest> HumanizeService::send(
    std::shared_ptr<RewriteRequest> handle, const QNetworkRequest &request, const QByteArray &body)
{
    // The delegate reports through the handle, which goes quiet once cancelled: what
    // the transfer still had on its way is not delivered to a caller that said stop.
    RewriteCallbacks reports;
    reports.onToken = [handle](const QString &fragment) { handle->token(fragment); };
    reports.onComplete = [handle] { handle->complete(); };
    // What the network layer says ("Connection refused") becomes what to do about it.
    reports.onError = [handle, context = FailureAdvice::contextOf(m_storage)](const QString &message) {
        handle->fail(FailureAdvice::forRewrite(context, message));
    };
    auto *task = new StreamDelegate(request, body, std::move(reports), this);
    connect(task, &StreamDelegate::finished, task, &QObject::deleteLater);
    handle->setAbort([task = QPointer<StreamDelegate>(task)] {
        if (task)
            task->cancel();
    });
    m_currentTask = handle;
    return handle;
}
