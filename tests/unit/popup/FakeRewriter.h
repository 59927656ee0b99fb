#pragma once

#include "Rewriter.h"

#include <QList>

// Records every rewrite asked for; a test plays the service by calling the callbacks
// of the latest request.
class FakeRewriter : public Rewriter
{
public:
    struct Request
    {
        QString text;
        QString tone;
        RewriteCallbacks callbacks;
    };

    QList<Request> requests;

    void humanize(const QString &text, const QString &tone, RewriteCallbacks callbacks) override
    {
        requests.append({ text, tone, std::move(callbacks) });
    }

    Request &last() { return requests.last(); }
    void token(const QString &fragment) { last().callbacks.onToken(fragment); }
    void complete() { last().callbacks.onComplete(); }
    void error(const QString &message) { last().callbacks.onError(message); }
};
