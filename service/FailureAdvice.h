#pragma once

#include "StorageManager.h"

#include <QString>
#include <QUrl>

struct ModelList;

// Turns what went wrong between Tessary and the language model into one or two plain
// sentences saying what to do. The messages the service itself gives, and the ones the
// request's own rules fix, pass unchanged; this fills in what the network layer would
// otherwise say ("Connection refused") and, for model servers spoken to directly, their
// own wording of a wrong key, an unknown model or a spent quota.
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

QString noModelChosen();
QString invalidAddress(const QString &address);

// A rewrite that ended with `message` (the transfer's description or the server's words).
QString forRewrite(const Context &context, const QString &message);

// A model list that did not come, or that lacks the chosen model; empty when all is well.
QString forModelList(const Context &context, const ModelList &list);

// Whether the message sends the user to Settings, where a button can take them.
bool pointsToSettings(const QString &message);

} // namespace FailureAdvice
