#include "FailureAdvice.h"

#include "ModelProbe.h"

#include <QRegularExpression>

using namespace Qt::StringLiterals;

namespace FailureAdvice {

namespace {

using Provider = StorageManager::Provider;

enum class Kind { Unreachable, HostUnknown, TimedOut, Tls, WrongKey, RateLimited, UnknownModel, None };

QString sentence(Kind kind, const Context &context)
{
    const QString at = where(context.base);
    switch (kind) {
    case Kind::Unreachable:
        switch (context.provider) {
        case Provider::TessaryService:
            return u"Tessary can't reach the rewrite service at %1. Start it with `tessary-server`, or pick "
                   u"a "
                   "language model in Settings."_s.arg(at);
        case Provider::LocalModel:
            return u"Tessary can't reach the model server at %1. Start it again (Ollama: `ollama serve`), or "
                   "pick another model in Settings."_s.arg(at);
        case Provider::ModelService:
            return u"Tessary can't reach %1. Check the address in Settings and your network connection."_s
                .arg(at);
        }
        break;
    case Kind::HostUnknown:
        return u"Tessary can't find the host %1. Check the address in Settings and your network connection."_s
            .arg(context.base.host());
    case Kind::TimedOut:
        return u"%1 stopped answering before the rewrite was done. Retry; a model that is still loading may "
               "need a moment."_s.arg(at);
    case Kind::Tls:
        return u"Tessary couldn't open a secure connection to %1. Check the address in Settings (a server on "
               "this machine usually takes http://, not https://)."_s.arg(at);
    case Kind::WrongKey:
        return u"%1 refused the API key. Enter the right key in Settings."_s.arg(at);
    case Kind::RateLimited:
        return u"%1 is turning requests away for now: the rate limit or the quota of the account is reached. "
               "Wait a moment and retry, or check the plan with the provider."_s.arg(at);
    case Kind::UnknownModel:
        return u"The model server at %1 has no model named “%2”. Pick one of its models in Settings."_s.arg(
            at, context.model);
    case Kind::None:
        break;
    }
    return {};
}

// What Qt's network layer and the stream reader say for a failed transfer.
Kind transportKind(const QString &message)
{
    static const QRegularExpression hostNotFound(u"^Host .* not found$"_s);
    static const QRegularExpression httpStatus(u"^The service answered with HTTP (\\d{3})\\b"_s);
    if (message == "Connection refused"_L1)
        return Kind::Unreachable;
    if (hostNotFound.match(message).hasMatch())
        return Kind::HostUnknown;
    if (message == "The request timed out."_L1 || message == "Socket operation timed out"_L1)
        return Kind::TimedOut;
    if (message.startsWith("SSL handshake failed"_L1) || message.startsWith("TLS initialization failed"_L1))
        return Kind::Tls;
    const QRegularExpressionMatch status = httpStatus.match(message);
    if (status.hasMatch()) {
        const int code = status.captured(1).toInt();
        if (code == 401 || code == 403)
            return Kind::WrongKey;
        if (code == 429)
            return Kind::RateLimited;
    }
    return Kind::None;
}

// How OpenAI-compatible servers word the failures people can fix themselves.
Kind modelServerKind(const QString &message)
{
    const QString text = message.toLower();
    if (text.contains("model"_L1)
        && (text.contains("not found"_L1) || text.contains("does not exist"_L1)
            || text.contains("unknown"_L1)))
        return Kind::UnknownModel;
    if (text.contains("api key"_L1) || text.contains("api_key"_L1) || text.contains("unauthorized"_L1)
        || text.contains("authentication"_L1))
        return Kind::WrongKey;
    if (text.contains("quota"_L1) || text.contains("rate limit"_L1) || text.contains("too many requests"_L1))
        return Kind::RateLimited;
    return Kind::None;
}

} // namespace

QString where(const QUrl &base)
{
    const QString host = base.host();
    if (host.isEmpty())
        return base.toString();
    return base.port() > 0 ? u"%1:%2"_s.arg(host).arg(base.port()) : host;
}

Context contextOf(const StorageManager &storage)
{
    if (storage.provider() == Provider::TessaryService)
        return { Provider::TessaryService, QUrl(storage.apiBase()), {} };
    return { storage.provider(), QUrl(storage.modelBase().trimmed()), storage.model() };
}

QString noModelChosen()
{
    return u"No language model is chosen yet. Pick one in Settings."_s;
}

QString invalidAddress(const QString &address)
{
    return u"“%1” is not an address Tessary can use. Enter one starting with http:// or https:// in Settings."_s
        .arg(address);
}

QString forRewrite(const Context &context, const QString &message)
{
    Kind kind = transportKind(message);
    // The Tessary service words its own refusals, and its idle timeout reads as the
    // platform has always put it; a model server's wording needs translating.
    if (context.provider == Provider::TessaryService && kind == Kind::TimedOut)
        kind = Kind::None;
    if (kind == Kind::None && context.provider != Provider::TessaryService)
        kind = modelServerKind(message);
    return kind == Kind::None ? message : sentence(kind, context);
}

QString forModelList(const Context &context, const ModelList &list)
{
    using Outcome = ModelList::Outcome;
    const QString at = where(context.base);
    switch (list.outcome) {
    case Outcome::Listed:
        if (!context.model.isEmpty() && !list.models.isEmpty() && !list.models.contains(context.model))
            return sentence(Kind::UnknownModel, context);
        return {};
    case Outcome::Unreachable:
        return sentence(list.detail.startsWith("Host "_L1) ? Kind::HostUnknown : Kind::Unreachable, context);
    case Outcome::TimedOut:
        return u"%1 did not answer in time. Check the address in Settings, or retry once the server has "
               "started."_s.arg(at);
    case Outcome::TlsError:
        return sentence(Kind::Tls, context);
    case Outcome::Unauthorized:
        return sentence(Kind::WrongKey, context);
    case Outcome::NotFound:
        return u"%1 answers, but lists no models at %2/models. Check the address in Settings (for most "
               u"servers "
               "it ends in /v1)."_s.arg(at, context.base.toString());
    case Outcome::HttpError:
        if (list.httpStatus == 429)
            return sentence(Kind::RateLimited, context);
        return u"%1 answered with HTTP %2. Retry later, or check the address in Settings."_s.arg(at).arg(
            list.httpStatus);
    case Outcome::InvalidUrl:
        return invalidAddress(context.base.toString());
    }
    return {};
}

bool pointsToSettings(const QString &message)
{
    return message.contains(" Settings"_L1);
}

} // namespace FailureAdvice
