#include "HumanizeService.h"

#include "Characters.h"
#include "FailureAdvice.h"
#include "Log.h"
#include "ModelClient.h"
#include "Prompt.h"
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

qsizetype HumanizeService::maxResultLength(const QString &text)
{
    return qMax<qsizetype>(200'000, 20 * text.size());
}

std::shared_ptr<RewriteRequest> HumanizeService::humanize(
    const QString &text, const QString &tone, const QString &instruction, RewriteCallbacks callbacks)
{
    auto handle = std::make_shared<RewriteRequest>(std::move(callbacks));
    Log::write(u"🚀", tag, u"Starting humanize request...");
    Log::write(u"📝", tag, { u"Text length: ", Characters::count(text), u", Tone: ", Log::Public(tone) });
    if (const auto running = std::exchange(m_currentTask, {}).lock())
        running->cancel();

    // A model server spoken to directly gets the prompt built here, not the samples.
    if (m_storage.provider() != StorageManager::Provider::TessaryService) {
        Failure problem;
        const auto prepared
            = ModelClient(m_storage).prepare(text, tone, instruction, m_idleTimeout, &problem);
        if (!prepared) {
            handle->fail(problem);
            return handle;
        }
        Log::write(u"📤", tag,
            { u"Request prepared, sending to: ", Log::Public(prepared->request.url().toString()) });
        return send(handle, prepared->request, prepared->body, maxResultLength(text));
    }

    const QString urlString = m_storage.apiBase() + u"/chat/completions"_s;
    const QUrl url(urlString, QUrl::StrictMode);
    if (!url.isValid() || url.isRelative() || url.host().isEmpty()) {
        Log::write(u"❌", tag, { u"Invalid API URL: ", Log::Public(urlString) });
        handle->fail(
            Failure::of(Failure::Kind::InvalidAddress, u"Invalid API URL"_s, Failure::Fix::Settings));
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
        { u"content"_s, QString::fromUtf16(rewriteInstruction) + text } };
    QJsonObject body { { u"stream"_s, true },
        { u"examples"_s, QJsonArray::fromStringList(m_storage.examples()) }, { u"tone"_s, tone },
        { u"messages"_s, QJsonArray { message } } };
    // Only when there is one: a request without it stays what every Tessary service reads.
    if (!instruction.isEmpty())
        body.insert(u"instruction"_s, instruction);
    Log::write(u"📤", tag, { u"Request prepared, sending to: ", Log::Public(url.toString()) });
    return send(handle, request, QJsonDocument(body).toJson(QJsonDocument::Compact), maxResultLength(text));
}

std::shared_ptr<RewriteRequest> HumanizeService::send(std::shared_ptr<RewriteRequest> handle,
    const QNetworkRequest &request, const QByteArray &body, qsizetype maxCharacters)
{
    // The delegate reports through the handle, which goes quiet once cancelled: what
    // the transfer still had on its way is not delivered to a caller that said stop.
    RewriteCallbacks reports;
    reports.onToken = [handle](const QString &fragment) { handle->token(fragment); };
    reports.onReasoning = [handle](const QString &fragment) { handle->reasoning(fragment); };
    reports.onComplete = [handle] { handle->complete(); };
    // What the network layer says ("Connection refused") becomes what to do about it.
    const FailureAdvice::Context context = FailureAdvice::contextOf(m_storage);
    reports.onError = [handle, context](const Failure &failure) {
        handle->fail(FailureAdvice::forRewrite(context, failure));
    };
    // The Tessary service's replies are read as they always were; a model server's, in any form they take.
    const StreamDelegate::Reading reading { context.provider != StorageManager::Provider::TessaryService,
        maxCharacters };
    auto *task = new StreamDelegate(request, body, std::move(reports), reading, this);
    connect(task, &StreamDelegate::finished, task, &QObject::deleteLater);
    handle->setAbort([task = QPointer<StreamDelegate>(task)] {
        if (task)
            task->cancel();
    });
    m_currentTask = handle;
    return handle;
}
