#pragma once

#include "Failure.h"
#include "StorageManager.h"

#include <QString>
#include <QUrl>

#include <optional>

struct ModelList;

// Turns what went wrong between Tessary and the language model into one or two plain
// sentences saying what to do, with what fixes it and the commands that may help. The
// messages the service itself gives, and the ones the request's own rules fix, pass
// unchanged; this fills in what the network layer would otherwise say ("Connection
// refused") and, for model servers spoken to directly, their own wording of a wrong key,
// an unknown model or a spent quota.
namespace FailureAdvice {

// Whom a failure concerns: which kind of service, where, and the model asked for.
struct Context
{
    StorageManager::Provider provider = StorageManager::Provider::TessaryService;
    QUrl base;
    QString model;
};

Context contextOf(const StorageManager &storage);

// "127.0.0.1:8787", "api.openai.com": the part of an address people recognise.
QString where(const QUrl &base);

Failure noModelChosen();
Failure invalidAddress(const QString &address);

// A rewrite that ended with `failure` (as the transfer or the server put it).
Failure forRewrite(const Context &context, const Failure &failure);

// A model list that did not come, or that lacks the chosen model; none when all is well.
std::optional<Failure> forModelList(const Context &context, const ModelList &list);

} // namespace FailureAdvice
