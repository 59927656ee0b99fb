#pragma once

#include "RewriteCallbacks.h"

#include <functional>
#include <memory>
#include <utility>

// One rewrite asked of the service, shared by the one who asked (to cancel it and to
// see how it ended) and the service (to report into it). Its callbacks hear exactly one
// outcome; cancelling one request never touches another.
class RewriteRequest
{
public:
    enum class Outcome { Running, Done, Failed, Cancelled };

    explicit RewriteRequest(RewriteCallbacks callbacks)
        : m_callbacks(std::move(callbacks))
    {
    }

    Outcome outcome() const { return m_outcome; }
    bool isRunning() const { return m_outcome == Outcome::Running; }

    // Stops the transfer and reports onCancelled; nothing the transfer had still on its
    // way is delivered. Does nothing once the request has ended.
    void cancel()
    {
        if (!end(Outcome::Cancelled))
            return;
        if (m_abort)
            std::exchange(m_abort, nullptr)();
        if (m_callbacks.onCancelled)
            m_callbacks.onCancelled();
    }
    // Ends the request without telling anybody: for an owner that is going away.
    void drop()
    {
        m_callbacks = {};
        cancel();
    }

    // The service's side.
    void setAbort(std::function<void()> abort) { m_abort = std::move(abort); }
    void token(const QString &fragment)
    {
        if (isRunning() && m_callbacks.onToken)
            m_callbacks.onToken(fragment);
    }
    void complete()
    {
        if (end(Outcome::Done) && m_callbacks.onComplete)
            m_callbacks.onComplete();
    }
    void reasoning(const QString &fragment)
    {
        if (isRunning() && m_callbacks.onReasoning)
            m_callbacks.onReasoning(fragment);
    }
    void fail(const Failure &failure)
    {
        if (end(Outcome::Failed) && m_callbacks.onError)
            m_callbacks.onError(failure);
    }

private:
    bool end(Outcome outcome)
    {
        if (!isRunning())
            return false;
        m_outcome = outcome;
        return true;
    }

    RewriteCallbacks m_callbacks;
    std::function<void()> m_abort;
    Outcome m_outcome = Outcome::Running;
};

// What the popup and the settings need of the rewrite service. Every call is a request
// of its own: several may run at once, and each is cancelled only through its handle.
// HumanizeService is the real one.
class Rewriter
{
public:
    virtual ~Rewriter() = default;
    // `instruction`: the user's own words on what to do ("shorter"), besides the tone; may be empty.
    virtual std::shared_ptr<RewriteRequest> humanize(
        const QString &text, const QString &tone, const QString &instruction, RewriteCallbacks callbacks)
        = 0;
    std::shared_ptr<RewriteRequest> humanize(
        const QString &text, const QString &tone, RewriteCallbacks callbacks)
    {
        return humanize(text, tone, {}, std::move(callbacks));
    }
};
