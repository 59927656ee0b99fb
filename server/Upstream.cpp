#include "Upstream.h"

#include "EventStream.h"

#include <QUrl>

#include <httplib.h>

using namespace Qt::StringLiterals;

namespace {

// The part of an upstream's error body worth showing, when it is JSON or short text.
QString upstreamErrorText(const QByteArray &body)
{
    const UpstreamEvent event = interpretWholeBody(body);
    if (event.kind == UpstreamEvent::Kind::Error)
        return event.text;
    QByteArray text = body.trimmed();
    if (text.isEmpty() || text.startsWith('<')) // an HTML error page says nothing useful
        return {};
    if (text.size() > 300)
        text = text.left(300) + "...";
    return QString::fromUtf8(text);
}

QString statusAdvice(int status)
{
    switch (status) {
    case 401:
    case 403:
        return u" Check upstream_key in tessary-server's config."_s;
    case 404:
        return u" Check upstream_url (it usually ends in /v1) and model in tessary-server's config."_s;
    case 429:
        return u" The model server is rate-limiting: try again in a moment."_s;
    default:
        return {};
    }
}

QString transportMessage(httplib::Error error, const QString &url, int timeoutSeconds)
{
    switch (error) {
    case httplib::Error::Connection:
    case httplib::Error::ConnectionTimeout:
        return u"tessary-server cannot reach the language model server at %1. Start the model server, "
               "or correct upstream_url in tessary-server's config."_s.arg(url);
    case httplib::Error::Read:
        return u"The language model server at %1 stopped answering (nothing for %2 seconds, or the "
               "connection was lost). Try again."_s.arg(url)
                   .arg(timeoutSeconds);
    case httplib::Error::SSLConnection:
    case httplib::Error::SSLLoadingCerts:
    case httplib::Error::SSLServerVerification:
        return u"tessary-server could not set up a secure connection to %1: %2. Check upstream_url and "
               "the system's certificates."_s.arg(url, QString::fromStdString(httplib::to_string(error)));
    default:
        return u"The request to the language model server at %1 failed: %2."_s.arg(
            url, QString::fromStdString(httplib::to_string(error)));
    }
}

} // namespace

QString upstreamUrlProblem(const QString &baseUrl)
{
    if (baseUrl.isEmpty())
        return u"No language model is configured for tessary-server: set upstream_url, for example "
               "http://localhost:11434/v1 for Ollama."_s;
    const QUrl url(baseUrl, QUrl::StrictMode);
    if (!url.isValid() || (url.scheme() != "http"_L1 && url.scheme() != "https"_L1) || url.host().isEmpty())
        return u"upstream_url \"%1\" is not an http:// or https:// address. Set it to the model server's "
               "OpenAI-compatible base, for example http://localhost:11434/v1 for Ollama."_s.arg(baseUrl);
    return {};
}

UpstreamCall::UpstreamCall(Settings settings)
    : m_settings(std::move(settings))
{
}

UpstreamCall::~UpstreamCall() = default;

void UpstreamCall::cancel()
{
    m_cancelled = true;
    std::lock_guard lock(m_clientMutex);
    if (m_client)
        m_client->stop();
}

UpstreamOutcome UpstreamCall::run(
    const QByteArray &body, const std::function<bool(const QString &)> &onFragment)
{
    UpstreamOutcome outcome;
    if (const QString problem = upstreamUrlProblem(m_settings.baseUrl); !problem.isEmpty()) {
        outcome.message = problem;
        return outcome;
    }
    const QUrl url(m_settings.baseUrl);
    QString path = url.path(QUrl::FullyEncoded);
    while (path.endsWith(u'/'))
        path.chop(1);
    path += "/chat/completions"_L1;
    const QString origin
        = url.adjusted(QUrl::RemovePath | QUrl::RemoveQuery | QUrl::RemoveFragment | QUrl::RemoveUserInfo)
              .toString();
    const QString shownUrl = url.adjusted(QUrl::RemoveUserInfo).toString();

    httplib::Client client(origin.toStdString());
    client.set_tcp_nodelay(true);
    client.set_connection_timeout(10);
    client.set_read_timeout(m_settings.timeoutSeconds);
    client.set_write_timeout(30);
    client.set_keep_alive(false);
    {
        std::lock_guard lock(m_clientMutex);
        if (m_cancelled) {
            outcome.result = UpstreamOutcome::Result::Cancelled;
            return outcome;
        }
        m_client = &client;
    }

    httplib::Request request;
    request.method = "POST";
    request.path = path.toStdString();
    request.headers = {
        { "Content-Type", "application/json" },
        { "Accept", "text/event-stream" },
    };
    if (!m_settings.key.isEmpty())
        request.headers.emplace("Authorization", "Bearer " + m_settings.key.toStdString());
    request.body = body.toStdString();

    int status = 0;
    QByteArray errorReply; // kept only for an error status, bounded
    QByteArray plainReply; // a reply that turns out not to be an event stream
    EventStreamParser parser;
    bool stopped = false; // by the client or by an error event
    bool done = false;
    QString streamedError;

    const auto onData = [&](QByteArrayView payload) {
        if (stopped || done)
            return;
        const UpstreamEvent event = interpretPayload(payload);
        switch (event.kind) {
        case UpstreamEvent::Kind::Fragment:
            ++outcome.fragments;
            if (!onFragment(event.text))
                stopped = true;
            break;
        case UpstreamEvent::Kind::Error:
            streamedError = event.text;
            stopped = true;
            break;
        case UpstreamEvent::Kind::Done:
            done = true;
            break;
        case UpstreamEvent::Kind::Ignored:
            break;
        }
    };

    request.response_handler = [&](const httplib::Response &response) {
        status = response.status;
        return true;
    };
    request.content_receiver = [&](const char *data, size_t length, uint64_t, uint64_t) {
        if (m_cancelled)
            return false;
        if (status >= 400) {
            if (errorReply.size() < 64 * 1024)
                errorReply.append(data, qsizetype(length));
            return true;
        }
        parser.feed(QByteArrayView(data, qsizetype(length)), onData);
        if (!parser.sawDataLine() && plainReply.size() < 1024 * 1024)
            plainReply.append(data, qsizetype(length));
        return !stopped && !done;
    };

    httplib::Response response;
    httplib::Error error = httplib::Error::Success;
    const bool sent = client.send(request, response, error);
    {
        std::lock_guard lock(m_clientMutex);
        m_client = nullptr;
    }

    if (m_cancelled || (stopped && streamedError.isEmpty())) {
        outcome.result = UpstreamOutcome::Result::Cancelled;
        return outcome;
    }
    if (!streamedError.isEmpty()) {
        outcome.message = u"The language model server reported an error: %1"_s.arg(streamedError);
        return outcome;
    }
    if (!sent && !done) {
        outcome.message = transportMessage(error, shownUrl, m_settings.timeoutSeconds);
        return outcome;
    }
    if (status >= 400) {
        const QString detail = upstreamErrorText(errorReply);
        outcome.message = u"The language model server at %1 answered HTTP %2%3.%4"_s.arg(shownUrl)
                              .arg(status)
                              .arg(detail.isEmpty() ? QString() : u": "_s + detail)
                              .arg(statusAdvice(status));
        return outcome;
    }
    parser.finish(onData);
    if (!parser.sawDataLine()) {
        const UpstreamEvent whole = interpretWholeBody(plainReply);
        if (whole.kind == UpstreamEvent::Kind::Error) {
            outcome.message = u"The language model server reported an error: %1"_s.arg(whole.text);
            return outcome;
        }
        if (whole.kind == UpstreamEvent::Kind::Fragment) {
            ++outcome.fragments;
            if (!onFragment(whole.text)) {
                outcome.result = UpstreamOutcome::Result::Cancelled;
                return outcome;
            }
        }
    }
    if (outcome.fragments == 0) {
        outcome.message = u"The language model at %1 returned no text. Try again, or check model in "
                          "tessary-server's config."_s.arg(shownUrl);
        return outcome;
    }
    outcome.result = UpstreamOutcome::Result::Finished;
    return outcome;
}
