#include "Upstream.h"

#include "EventStream.h"
#include "HttpMessageReader.h"
#include "ReplyInterpreter.h"

#include <QUrl>

#include <boost/asio/connect.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/ssl.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/string_body.hpp>
#include <boost/beast/http/write.hpp>
#include <boost/beast/ssl/ssl_stream.hpp>
#include <optional>
#include <variant>

using namespace Qt::StringLiterals;
namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = boost::beast::http;
using tcp = asio::ip::tcp;

namespace {

constexpr int maxResponseFields = 100;
constexpr qsizetype maxErrorReplyBytes = 64 * 1024;

// The part of an upstream's error body worth showing, when it is short text.
QString upstreamErrorText(const QByteArray &body)
{
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

// Where a transfer failed decides what the user is told to do about it.
enum class Stage { Connecting, SecureConnecting, Sending, Receiving };

} // namespace

struct UpstreamCall::State : std::enable_shared_from_this<State>
{
    State(asio::io_context &io, Settings settings)
        : settings(std::move(settings))
        , resolver(io)
        , io(io)
    {
    }

    using PlainStream = beast::tcp_stream;
    using SecureStream = beast::ssl_stream<beast::tcp_stream>;

    Settings settings;
    QString shownUrl;
    tcp::resolver resolver;
    asio::io_context &io;
    std::optional<asio::ssl::context> tls;
    std::variant<std::monostate, PlainStream, SecureStream> stream;
    http::request<http::string_body> request;
    beast::flat_buffer buffer;
    std::optional<HttpMessageReader<false>> reader;

    FragmentHandler onFragment;
    DoneHandler onDone;
    UpstreamOutcome outcome;
    bool cancelled = false;
    bool finished = false;

    ReplyInterpreter replyReader { settings.maxLineBytes };
    const ReplyInterpreter::Handler onEvent = [this](const ReplyEvent &event) { take(event); };
    QByteArray errorReply; // kept only for an error status, bounded
    bool stopped = false; // by the client or by an error event
    bool done = false;
    QString streamedError;

    beast::tcp_stream &tcpStream()
    {
        if (auto *plain = std::get_if<PlainStream>(&stream))
            return *plain;
        return beast::get_lowest_layer(std::get<SecureStream>(stream));
    }

    template<typename Operation> void withStream(Operation &&operation)
    {
        if (auto *plain = std::get_if<PlainStream>(&stream))
            operation(*plain);
        else
            operation(std::get<SecureStream>(stream));
    }

    void begin(const QByteArray &body);
    void connect(const tcp::resolver::results_type &endpoints, const std::string &host);
    void send();
    void receive();
    bool takeBody(std::string_view bytes);
    void take(const ReplyEvent &event);
    void failTransport(Stage stage, const beast::error_code &error);
    void conclude();
    void finish(UpstreamOutcome::Result result, const QString &message = {});
    void cancel();
};

void UpstreamCall::State::begin(const QByteArray &body)
{
    if (const QString problem = upstreamUrlProblem(settings.baseUrl); !problem.isEmpty())
        return finish(UpstreamOutcome::Result::Failed, problem);
    const QUrl url(settings.baseUrl);
    shownUrl = shownUpstreamUrl(settings.baseUrl);
    const bool secure = url.scheme() == "https"_L1;

    QString target = url.path(QUrl::FullyEncoded);
    while (target.endsWith(u'/'))
        target.chop(1);
    target += "/chat/completions"_L1;
    // Some hosted services take their key or API version in the query string.
    if (url.hasQuery())
        target += u'?' + url.query(QUrl::FullyEncoded);

    request.method(http::verb::post);
    request.target(target.toStdString());
    request.version(11);
    request.set(
        http::field::host, url.adjusted(QUrl::RemoveUserInfo).authority(QUrl::FullyEncoded).toStdString());
    request.set(http::field::content_type, "application/json");
    request.set(http::field::accept, "text/event-stream");
    request.set(http::field::connection, "close");
    if (!settings.key.isEmpty())
        request.set(http::field::authorization, "Bearer " + settings.key.toStdString());
    request.body() = body.toStdString();
    request.prepare_payload();

    const std::string host = url.host(QUrl::FullyEncoded).toStdString();
    if (secure) {
        tls.emplace(asio::ssl::context::tls_client);
        tls->set_default_verify_paths();
        tls->set_verify_mode(asio::ssl::verify_peer);
        stream.emplace<SecureStream>(io, *tls);
    } else {
        stream.emplace<PlainStream>(io);
    }
    resolver.async_resolve(host, std::to_string(url.port(secure ? 443 : 80)),
        [self = shared_from_this(), host](
            const beast::error_code &error, tcp::resolver::results_type endpoints) {
            if (self->cancelled)
                return self->finish(UpstreamOutcome::Result::Cancelled);
            if (error)
                return self->failTransport(Stage::Connecting, error);
            self->connect(endpoints, host);
        });
}

void UpstreamCall::State::connect(const tcp::resolver::results_type &endpoints, const std::string &host)
{
    tcpStream().expires_after(std::chrono::seconds(10));
    tcpStream().async_connect(
        endpoints, [self = shared_from_this(), host](const beast::error_code &error, const tcp::endpoint &) {
            if (self->cancelled)
                return self->finish(UpstreamOutcome::Result::Cancelled);
            if (error)
                return self->failTransport(Stage::Connecting, error);
            self->tcpStream().socket().set_option(tcp::no_delay(true));
            auto *secure = std::get_if<SecureStream>(&self->stream);
            if (!secure)
                return self->send();
            // The name the certificate must carry, sent so that shared hosts pick the right one.
            SSL_set_tlsext_host_name(secure->native_handle(), host.c_str());
            secure->set_verify_callback(asio::ssl::host_name_verification(host));
            secure->async_handshake(asio::ssl::stream_base::client, [self](const beast::error_code &error) {
                if (self->cancelled)
                    return self->finish(UpstreamOutcome::Result::Cancelled);
                if (error)
                    return self->failTransport(Stage::SecureConnecting, error);
                self->send();
            });
        });
}

void UpstreamCall::State::send()
{
    tcpStream().expires_after(std::chrono::seconds(30));
    withStream([this](auto &stream) {
        http::async_write(
            stream, request, [self = shared_from_this()](const beast::error_code &error, size_t) {
                if (self->cancelled)
                    return self->finish(UpstreamOutcome::Result::Cancelled);
                if (error)
                    return self->failTransport(Stage::Sending, error);
                self->request = {}; // the prompt is not needed any more
                self->reader.emplace(maxResponseFields);
                self->reader->header_limit(std::uint32_t(self->settings.maxHeaderBytes));
                self->reader->body_limit(boost::none); // a stream is as long as the model writes
                self->reader->onBody(
                    [self = self.get()](std::string_view bytes) { return self->takeBody(bytes); });
                self->receive();
            });
    });
}

void UpstreamCall::State::receive()
{
    tcpStream().expires_after(std::chrono::seconds(settings.timeoutSeconds));
    withStream([this](auto &stream) {
        http::async_read_some(
            stream, buffer, *reader, [self = shared_from_this()](const beast::error_code &error, size_t) {
                if (self->cancelled || self->finished)
                    return self->finish(UpstreamOutcome::Result::Cancelled);
                if (self->stopped || self->done || self->replyReader.lineTooLong() || self->reader->is_done())
                    return self->conclude();
                if (error == http::error::header_limit)
                    return self->finish(UpstreamOutcome::Result::Failed,
                        u"The language model server at %1 sent a reply head larger than tessary-server "
                        "accepts (%2 bytes, %3 fields)."_s.arg(self->shownUrl)
                            .arg(self->settings.maxHeaderBytes)
                            .arg(maxResponseFields));
                if (error)
                    return self->failTransport(Stage::Receiving, error);
                self->receive();
            });
    });
}

bool UpstreamCall::State::takeBody(std::string_view bytes)
{
    const QByteArrayView data(bytes.data(), qsizetype(bytes.size()));
    // An error status's body is read like any other; its text is kept in case it says
    // nothing the reader understands.
    if (reader->status() >= 400 && errorReply.size() < maxErrorReplyBytes)
        errorReply.append(data.first(qMin(data.size(), maxErrorReplyBytes - errorReply.size())));
    replyReader.feed(data, onEvent);
    return !replyReader.lineTooLong() && !stopped && !done;
}

void UpstreamCall::State::take(const ReplyEvent &event)
{
    if (stopped || done)
        return;
    switch (event.kind) {
    case ReplyEvent::Kind::Text:
        ++outcome.fragments;
        if (!onFragment(event.text))
            stopped = true;
        break;
    case ReplyEvent::Kind::Error:
        streamedError = event.text;
        stopped = true;
        break;
    case ReplyEvent::Kind::Done:
        done = true;
        break;
    case ReplyEvent::Kind::Reasoning:
        break; // clients get the answer only
    }
}

void UpstreamCall::State::failTransport(Stage stage, const beast::error_code &error)
{
    QString message;
    switch (stage) {
    case Stage::Connecting:
        outcome.tryAnother = true;
        message = u"tessary-server cannot reach the language model server at %1. Start the model server, "
                  "or correct upstream_url in tessary-server's config."_s.arg(shownUrl);
        break;
    case Stage::SecureConnecting:
        message = u"tessary-server could not set up a secure connection to %1: %2. Check upstream_url and "
                  "the system's certificates."_s.arg(shownUrl, QString::fromStdString(error.message()));
        break;
    case Stage::Sending:
    case Stage::Receiving:
        message = u"The language model server at %1 stopped answering (nothing for %2 seconds, or the "
                  "connection was lost). Try again."_s.arg(shownUrl)
                      .arg(stage == Stage::Sending ? 30 : settings.timeoutSeconds);
        break;
    }
    finish(UpstreamOutcome::Result::Failed, message);
}

void UpstreamCall::State::conclude()
{
    if (stopped && streamedError.isEmpty())
        return finish(UpstreamOutcome::Result::Cancelled);
    if (replyReader.lineTooLong())
        return finish(UpstreamOutcome::Result::Failed,
            u"The language model server at %1 sent a line longer than tessary-server accepts (%2 bytes)."_s
                .arg(shownUrl)
                .arg(settings.maxLineBytes));
    if (streamedError.isEmpty())
        replyReader.finish(onEvent);
    if (stopped && streamedError.isEmpty())
        return finish(UpstreamOutcome::Result::Cancelled);
    const int status = reader->status();
    const bool answered = replyReader.ending() == ReplyInterpreter::Ending::Answered;
    if (status >= 400 && (!streamedError.isEmpty() || !answered)) {
        const QString detail = streamedError.isEmpty() ? upstreamErrorText(errorReply) : streamedError;
        outcome.tryAnother = status >= 500;
        return finish(UpstreamOutcome::Result::Failed,
            u"The language model server at %1 answered HTTP %2%3.%4"_s.arg(shownUrl)
                .arg(status)
                .arg(detail.isEmpty() ? QString() : u": "_s + detail)
                .arg(statusAdvice(status)));
    }
    if (!streamedError.isEmpty())
        return finish(UpstreamOutcome::Result::Failed,
            u"The language model server reported an error: %1"_s.arg(streamedError));
    if (replyReader.ending() == ReplyInterpreter::Ending::UnclosedThinking)
        return finish(UpstreamOutcome::Result::Failed,
            u"The language model at %1 was still thinking when its reply ended, so it gave no answer. Try "
            "again, or allow the model longer answers."_s.arg(shownUrl));
    if (!answered)
        return finish(UpstreamOutcome::Result::Failed,
            u"The language model at %1 returned no text. Try again, or check model in "
            "tessary-server's config."_s.arg(shownUrl));
    finish(UpstreamOutcome::Result::Finished);
}

void UpstreamCall::State::finish(UpstreamOutcome::Result result, const QString &message)
{
    if (finished)
        return;
    finished = true;
    outcome.result = result;
    outcome.message = message;
    beast::error_code ignored;
    if (!std::holds_alternative<std::monostate>(stream))
        tcpStream().socket().close(ignored);
    // The handlers may own the caller; letting go of them here breaks that cycle.
    const DoneHandler report = std::move(onDone);
    onFragment = nullptr;
    onDone = nullptr;
    if (report)
        report(outcome);
}

void UpstreamCall::State::cancel()
{
    if (finished || cancelled)
        return;
    cancelled = true;
    resolver.cancel();
    // Closing ends whatever operation is pending; its handler reports the cancellation.
    beast::error_code ignored;
    if (!std::holds_alternative<std::monostate>(stream))
        tcpStream().socket().close(ignored);
}

UpstreamCall::UpstreamCall(std::shared_ptr<State> state)
    : m_state(std::move(state))
{
}

std::shared_ptr<UpstreamCall> UpstreamCall::start(asio::io_context &io, Settings settings,
    const QByteArray &body, FragmentHandler onFragment, DoneHandler onDone)
{
    auto state = std::make_shared<State>(io, std::move(settings));
    state->onFragment = std::move(onFragment);
    state->onDone = std::move(onDone);
    asio::post(io, [state, body] { state->begin(body); });
    return std::shared_ptr<UpstreamCall>(new UpstreamCall(state));
}

void UpstreamCall::cancel()
{
    m_state->cancel();
}

QString upstreamUrlProblem(const QString &baseUrl)
{
    if (baseUrl.isEmpty())
        return u"No language model is configured for tessary-server: set upstream_url, for example "
               "http://localhost:11434/v1 for Ollama."_s;
    const QUrl url(baseUrl, QUrl::StrictMode);
    if (!url.isValid() || (url.scheme() != "http"_L1 && url.scheme() != "https"_L1) || url.host().isEmpty())
        return u"upstream_url \"%1\" is not an http:// or https:// address. Set it to the model server's "
               "OpenAI-compatible base, for example http://localhost:11434/v1 for Ollama."_s.arg(
                   baseUrl.section(u'?', 0, 0));
    return {};
}

QString shownUpstreamUrl(const QString &baseUrl)
{
    const QUrl url(baseUrl);
    if (!url.isValid())
        return baseUrl.section(u'?', 0, 0);
    return url.adjusted(QUrl::RemoveUserInfo | QUrl::RemoveQuery | QUrl::RemoveFragment).toString();
}
