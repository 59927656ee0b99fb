#pragma once

#include "Rewriter.h"

#include <QList>

// Records every rewrite asked for; a test plays the service by reporting into the
// latest request (or any earlier one). A cancelled request hears nothing more, as with
// the real service.
class FakeRewriter : public Rewriter
{
public:
    struct Request
    {
        QString text;
        QString tone;
        std::shared_ptr<RewriteRequest> handle;
        QString instruction;
    };

    QList<Request> requests;

    std::shared_ptr<RewriteRequest> humanize(const QString &text, const QString &tone,
        const QString &instruction, RewriteCallbacks callbacks) override
    {
        auto handle = std::make_shared<RewriteRequest>(std::move(callbacks));
        requests.append({ text, tone, handle, instruction });
        return handle;
    }

    Request &last() { return requests.last(); }
    void token(const QString &fragment) { last().handle->token(fragment); }
    void complete() { last().handle->complete(); }
    void finish(const QString &result)
    {
        token(result);
        complete();
    }
    void error(const Failure &failure) { last().handle->fail(failure); }
    void reasoning(const QString &fragment) { last().handle->reasoning(fragment); }
};
