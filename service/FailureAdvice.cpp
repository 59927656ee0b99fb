#include "FailureAdvice.h"

#include "ModelProbe.h"

using namespace Qt::StringLiterals;

namespace FailureAdvice {

namespace {

using Provider = StorageManager::Provider;
using Kind = Failure::Kind;
using Fix = Failure::Fix;

// `text` says "{Settings}" where the popup sends the user to Settings; inside Settings
// that part is left out, since the fields are right there.
Failure worded(Kind kind, const QString &text, Fix fix, const QStringList &commands = {})
{
    Failure failure { kind, QString(text).replace("{Settings}"_L1, " in Settings"_L1), fix, commands, {}, 0 };
    if (text.contains("{Settings}"_L1))
        failure.settingsWording = QString(text).remove("{Settings}"_L1);
    return failure;
}

Failure advice(Kind kind, const Context &context)
{
    const QString at = where(context.base);
    switch (kind) {
    case Kind::Unreachable:
        switch (context.provider) {
        case Provider::TessaryService:
            return worded(kind,
                u"Tessary can't reach the rewrite service at %1. Start it with the command below, or pick a "
                "language model{Settings}."_s.arg(at),
                Fix::Settings, { u"tessary-server"_s });
        case Provider::LocalModel:
            return worded(kind,
                u"Tessary can't reach the model server at %1. Start it again (for Ollama, with the command "
                "below), or pick another model{Settings}."_s.arg(at),
                Fix::Settings, { u"ollama serve"_s });
        case Provider::ModelService:
            return worded(kind,
                u"Tessary can't reach %1. Check the address{Settings} and your network connection."_s.arg(at),
                Fix::Settings);
        }
        break;
    case Kind::HostUnknown:
        return worded(kind,
            u"Tessary can't find the host %1. Check the address{Settings} and your network connection."_s.arg(
                context.base.host()),
            Fix::Settings);
    case Kind::TimedOut:
        return worded(kind,
            u"%1 stopped answering before the rewrite was done. Retry; a model that is still loading may "
            "need a moment."_s.arg(at),
            Fix::Retry);
    case Kind::Tls:
        return worded(kind,
            u"Tessary couldn't open a secure connection to %1. Check the address{Settings} (a server on "
            "this machine usually takes http://, not https://)."_s.arg(at),
            Fix::Settings);
    case Kind::WrongKey:
        return worded(
            kind, u"%1 refused the API key. Enter the right key{Settings}."_s.arg(at), Fix::Settings);
    case Kind::RateLimited:
        return worded(kind,
            u"%1 is turning requests away for now: the rate limit or the quota of the account is reached. "
            "Wait a moment and retry, or check the plan with the provider."_s.arg(at),
            Fix::Retry);
    case Kind::UnknownModel:
        return worded(kind,
            u"The model server at %1 has no model named “%2”. Pick one of its models{Settings}."_s.arg(
                at, context.model),
            Fix::Settings);
    default:
        break;
    }
    return {};
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
    return Kind::Service;
}

bool hasAdvice(Kind kind)
{
    switch (kind) {
    case Kind::Unreachable:
    case Kind::HostUnknown:
    case Kind::TimedOut:
    case Kind::Tls:
    case Kind::WrongKey:
    case Kind::RateLimited:
    case Kind::UnknownModel:
        return true;
    default:
        return false;
    }
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

Failure noModelChosen()
{
    return worded(
        Kind::NoModelChosen, u"No language model is chosen yet. Pick one{Settings}."_s, Fix::Settings);
}

Failure invalidAddress(const QString &address)
{
    return worded(Kind::InvalidAddress,
        u"“%1” is not an address Tessary can use. Enter one starting with http:// or https://{Settings}."_s
            .arg(address),
        Fix::Settings);
}

Failure forRewrite(const Context &context, const Failure &failure)
{
    Kind kind = failure.kind;
    if (kind == Kind::HttpStatus) {
        if (failure.code == 401 || failure.code == 403)
            kind = Kind::WrongKey;
        else if (failure.code == 429)
            kind = Kind::RateLimited;
    }
    // The Tessary service words its own refusals, and its idle timeout reads as the
    // platform has always put it; a model server's wording needs translating.
    if (context.provider == Provider::TessaryService && kind == Kind::TimedOut)
        return failure;
    if (kind == Kind::Service && context.provider != Provider::TessaryService)
        kind = modelServerKind(failure.message);
    if (!hasAdvice(kind))
        return failure;
    Failure advised = advice(kind, context);
    advised.code = failure.code;
    return advised;
}

std::optional<Failure> forModelList(const Context &context, const ModelList &list)
{
    using Outcome = ModelList::Outcome;
    const QString at = where(context.base);
    switch (list.outcome) {
    case Outcome::Listed:
        if (!context.model.isEmpty() && !list.models.isEmpty() && !list.models.contains(context.model))
            return advice(Kind::UnknownModel, context);
        return std::nullopt;
    case Outcome::Unreachable:
        return advice(list.detail.startsWith("Host "_L1) ? Kind::HostUnknown : Kind::Unreachable, context);
    case Outcome::TimedOut:
        return worded(Kind::TimedOut,
            u"%1 did not answer in time. Check the address{Settings}, or retry once the server has "
            "started."_s.arg(at),
            Fix::Retry);
    case Outcome::TlsError:
        return advice(Kind::Tls, context);
    case Outcome::Unauthorized:
        return advice(Kind::WrongKey, context);
    case Outcome::NotFound:
        return worded(Kind::HttpStatus,
            u"%1 answers, but lists no models at %2/models. Check the address{Settings} (for most servers "
            "it ends in /v1)."_s.arg(at, context.base.toString()),
            Fix::Settings);
    case Outcome::HttpError:
        if (list.httpStatus == 429)
            return advice(Kind::RateLimited, context);
        return worded(Kind::HttpStatus,
            u"%1 answered with HTTP %2. Retry later, or check the address{Settings}."_s.arg(at).arg(
                list.httpStatus),
            Fix::Retry);
    case Outcome::InvalidUrl:
        return invalidAddress(context.base.toString());
    }
    return std::nullopt;
}

} // namespace FailureAdvice
