#include "RewriteServer.h"

#include "EventStream.h"
#include "HttpMessageReader.h"
#include "Prompt.h"
#include "RewriteRequest.h"
#include "ServerLog.h"
#include "Upstream.h"

#include <QElapsedTimer>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <atomic>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/status.hpp>
#include <csignal>
#include <deque>
#include <list>
#include <map>
#include <optional>
#include <thread>
#include <vector>

using namespace Qt::StringLiterals;
namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = boost::beast::http;
using tcp = asio::ip::tcp;
using namespace std::chrono_literals;

namespace {

constexpr std::string_view completionsPath = "/api/v1/chat/completions";
constexpr std::string_view versionPath = "/api/v1/version";
// The model that answers, for a client's connection test: costs no tokens, needs the token.
constexpr std::string_view modelsPath = "/api/v1/models";
constexpr int maxRequestsPerConnection = 100;
// A client that stops reading its stream must not make us keep what we would send it.
constexpr size_t maxUnsentBytes = 256 * 1024;
// After a refusal, what the client still sends is read away for a moment, so that our
// answer is not lost to a reset; then the connection is closed regardless.
constexpr size_t maxDrainBytes = 1024 * 1024;
constexpr auto drainTime = 2s;
// A connection turned away at the door has sent little or nothing yet: it gets less.
constexpr auto turnedAwayDrainTime = 200ms;
// While the model is silent, a comment line this often finds out whether the client is
// still there: writing to a client that has gone fails.
constexpr auto heartbeatInterval = 1s;
constexpr std::string_view heartbeatEvent = ": keep-alive\n\n";

// Compares without an early exit, so the time taken says nothing about the token.
// An empty expected token matches nothing.
bool sameSecret(std::string_view given, std::string_view expected)
{
    if (expected.empty())
        return false;
    unsigned char difference = given.size() == expected.size() ? 0 : 1;
    for (size_t i = 0; i < expected.size(); ++i) {
        const unsigned char byte = i < given.size() ? static_cast<unsigned char>(given[i]) : 0;
        difference |= byte ^ static_cast<unsigned char>(expected[i]);
    }
    return difference == 0;
}

// Text a client (or the upstream) chose, made safe for one log line: line ends, control
// and format characters escaped, so nobody can start a line of their own or hide one.
QString logSafe(QStringView text)
{
    QString safe;
    safe.reserve(text.size());
    for (const QChar c : text) {
        switch (c.unicode()) {
        case u'\\':
            safe += "\\\\"_L1;
            continue;
        case u'\n':
            safe += "\\n"_L1;
            continue;
        case u'\r':
            safe += "\\r"_L1;
            continue;
        case u'\t':
            safe += "\\t"_L1;
            continue;
        }
        const QChar::Category category = c.category();
        if (category == QChar::Other_Control || category == QChar::Other_Format
            || category == QChar::Separator_Line || category == QChar::Separator_Paragraph)
            safe += u"\\u{%1}"_s.arg(c.unicode(), 0, 16);
        else
            safe += c;
    }
    return safe;
}

std::string replyHead(int status, std::string_view contentType, bool keepAlive, std::string_view extra = {})
{
    std::string head = "HTTP/1.1 " + std::to_string(status) + ' '
        + std::string(http::obsolete_reason(static_cast<http::status>(status))) + "\r\n";
    head += "Content-Type: ";
    head += contentType;
    head += "\r\nConnection: ";
    head += keepAlive ? "keep-alive" : "close";
    head += "\r\n";
    head += extra;
    return head;
}

std::string wholeReply(int status, const QByteArray &json, bool keepAlive, std::string_view extra = {})
{
    return replyHead(status, "application/json", keepAlive, extra)
        + "Content-Length: " + std::to_string(json.size()) + "\r\n\r\n" + json.toStdString();
}

} // namespace

struct RewriteServer::Shared
{
    explicit Shared(ServerConfig config)
        : config(std::move(config))
        , token(this->config.clientToken.toStdString())
    {
    }

    void accept();
    QByteArray versionReply() const;
    QByteArray modelsReply() const;

    ServerConfig config;
    std::string token;
    std::atomic<int> activeStreams { 0 };
    quint64 nextRequestId = 1;
    int connections = 0;
    std::map<asio::ip::address, int> perAddress;
    std::list<std::weak_ptr<Session>> sessions;
    int port = -1;
    QString error;
    // Declared after everything a session touches: destroying the event loop destroys
    // the sessions its pending operations still hold.
    asio::io_context io { 1 };
    tcp::acceptor acceptor { io };
    asio::steady_timer acceptPause { io };
    std::thread thread;
};

class RewriteServer::Session : public std::enable_shared_from_this<Session>
{
public:
    Session(Shared &shared, tcp::socket socket)
        : m_shared(shared)
        , m_stream(std::move(socket))
        , m_buffer(size_t(shared.config.maxHeaderBytes) + 4096)
        , m_heartbeat(shared.io)
    {
    }
    ~Session();

    void begin();
    void shutdown();

private:
    const ServerConfig &config() const { return m_shared.config; }
    void readHead();
    void onHead(const beast::error_code &error);
    void readBody();
    void onBody(const beast::error_code &error);
    bool authorized() const;
    void refuse(int status, const QString &type, const QString &message, std::string_view extra = {});
    void sendWhole(std::string bytes, bool keepAlive);
    void startStream(const RewriteRequest &rewrite);
    bool queue(std::string bytes);
    bool queueEvent(QByteArrayView event);
    void writeNext();
    void beat();
    void clientGone();
    void upstreamDone(const UpstreamOutcome &outcome);
    void afterResponse();
    void closeGracefully();
    void drain();
    void uncount();

    Shared &m_shared;
    beast::tcp_stream m_stream;
    asio::ip::address m_address;
    std::list<std::weak_ptr<Session>>::iterator m_entry;
    bool m_registered = false;
    bool m_counted = false; // in the connection counts
    std::chrono::milliseconds m_drainTime = drainTime;
    beast::flat_buffer m_buffer;
    std::optional<HttpMessageReader<true>> m_reader;
    std::string m_body;
    int m_requests = 0;
    bool m_keepAlive = false;

    quint64 m_id = 0;
    QElapsedTimer m_timer;
    std::shared_ptr<UpstreamCall> m_upstream;
    asio::steady_timer m_heartbeat;
    std::chrono::steady_clock::time_point m_lastWrite;
    bool m_streaming = false; // counted in activeStreams
    bool m_chunked = true;

    std::deque<std::string> m_outbox;
    size_t m_unsentBytes = 0;
    bool m_writing = false;
    bool m_finishing = false; // the response is queued in full
    bool m_gone = false;
    size_t m_drained = 0;
};

RewriteServer::Session::~Session()
{
    if (m_streaming)
        --m_shared.activeStreams;
    if (!m_registered)
        return;
    m_shared.sessions.erase(m_entry);
    if (m_counted)
        uncount();
}

void RewriteServer::Session::uncount()
{
    m_counted = false;
    --m_shared.connections;
    if (--m_shared.perAddress[m_address] == 0)
        m_shared.perAddress.erase(m_address);
}

void RewriteServer::Session::begin()
{
    beast::error_code error;
    m_address = m_stream.socket().remote_endpoint(error).address();
    if (error)
        return; // gone before we looked
    m_stream.socket().set_option(tcp::no_delay(true), error);
    m_entry = m_shared.sessions.insert(m_shared.sessions.end(), weak_from_this());
    m_registered = true;
    m_counted = true;
    ++m_shared.connections;
    const int fromAddress = ++m_shared.perAddress[m_address];
    // Refused at once, not queued: a client learns it should come back later. Not counted
    // while the refusal goes out, or a flood of refused clients would hold the door shut
    // for everybody else.
    if (m_shared.connections > config().maxConnections || fromAddress > config().maxConnectionsPerAddress) {
        uncount();
        m_drainTime = turnedAwayDrainTime;
        return refuse(503, u"server_busy"_s,
            u"tessary-server has too many open connections. Try again in a moment."_s, "Retry-After: 1\r\n");
    }
    readHead();
}

void RewriteServer::Session::shutdown()
{
    m_gone = true;
    m_heartbeat.cancel();
    if (m_upstream)
        m_upstream->cancel();
    beast::error_code ignored;
    m_stream.socket().close(ignored);
}

void RewriteServer::Session::readHead()
{
    m_reader.emplace(config().maxHeaderFields);
    m_reader->header_limit(std::uint32_t(config().maxHeaderBytes));
    // The length a client announces is judged after its token, not while reading the head.
    m_reader->body_limit(boost::none);
    // The whole head must arrive by then, however slowly its bytes trickle in.
    m_stream.expires_after(std::chrono::seconds(config().requestHeadSeconds));
    http::async_read_header(m_stream, m_buffer, *m_reader,
        [self = shared_from_this()](const beast::error_code &error, size_t) { self->onHead(error); });
}

void RewriteServer::Session::onHead(const beast::error_code &error)
{
    if (error == http::error::header_limit || error == http::error::buffer_overflow)
        return refuse(431, u"invalid_request_error"_s,
            u"The request headers are larger than tessary-server accepts (%1 bytes, %2 fields)."_s
                .arg(config().maxHeaderBytes)
                .arg(config().maxHeaderFields));
    if (error == http::error::end_of_stream || error == beast::error::timeout || error == asio::error::eof
        || error == asio::error::operation_aborted || error == asio::error::connection_reset)
        return shutdown();
    if (error)
        return refuse(
            400, u"invalid_request_error"_s, u"tessary-server could not read the request (HTTP 400)."_s);

    m_keepAlive = m_reader->keep_alive() && ++m_requests < maxRequestsPerConnection;
    const std::string_view target = m_reader->target();
    const std::string_view path = target.substr(0, target.find('?'));
    const std::string_view method = m_reader->method();
    const bool hasBody = m_reader->chunked() || m_reader->content_length().value_or(0) > 0;
    if (path == versionPath && method == "GET")
        return sendWhole(
            wholeReply(200, m_shared.versionReply(), m_keepAlive && !hasBody), m_keepAlive && !hasBody);
    if (path == modelsPath && method == "GET") {
        if (!authorized())
            return refuse(401, u"invalid_request_error"_s,
                u"Invalid API key: enter the client token of tessary-server (kept in "
                "~/.config/tessary-server/client-token) in Tessary's Settings."_s,
                "WWW-Authenticate: Bearer\r\n");
        return sendWhole(
            wholeReply(200, m_shared.modelsReply(), m_keepAlive && !hasBody), m_keepAlive && !hasBody);
    }
    if (path != completionsPath || method != "POST")
        return refuse(path == completionsPath || path == versionPath ? 405 : 404, u"invalid_request_error"_s,
            u"tessary-server answers POST %1 and GET %2 only."_s.arg(
                QLatin1StringView(completionsPath), QLatin1StringView(versionPath)));

    m_id = m_shared.nextRequestId++;
    // Before a byte of the body is read: without the token, a client gets nothing more from us.
    if (!authorized()) {
        serverLog(u"#%1 refused: missing or wrong client token"_s.arg(m_id));
        return refuse(401, u"invalid_request_error"_s,
            u"Invalid API key: enter the client token of tessary-server (kept in "
            "~/.config/tessary-server/client-token) in Tessary's Settings."_s,
            "WWW-Authenticate: Bearer\r\n");
    }
    if (m_reader->content_length().value_or(0) > std::uint64_t(config().maxBodyBytes))
        return onBody(http::error::body_limit);
    // Whatever the framing: a chunked body stops at the same size.
    m_reader->body_limit(std::uint64_t(config().maxBodyBytes));
    m_body.clear();
    m_reader->onBody([this](std::string_view bytes) {
        m_body.append(bytes);
        return true;
    });
    if (!m_reader->expectsContinue())
        return readBody();
    static constexpr std::string_view goOn = "HTTP/1.1 100 Continue\r\n\r\n";
    m_stream.expires_after(std::chrono::seconds(config().idleTimeoutSeconds));
    asio::async_write(
        m_stream, asio::buffer(goOn), [self = shared_from_this()](const beast::error_code &error, size_t) {
            if (error)
                return self->shutdown();
            self->readBody();
        });
}

void RewriteServer::Session::readBody()
{
    m_stream.expires_after(std::chrono::seconds(config().idleTimeoutSeconds));
    http::async_read(m_stream, m_buffer, *m_reader,
        [self = shared_from_this()](const beast::error_code &error, size_t) { self->onBody(error); });
}

void RewriteServer::Session::onBody(const beast::error_code &error)
{
    if (error == http::error::body_limit)
        return refuse(413, u"invalid_request_error"_s,
            u"The request is larger than tessary-server accepts (%1 bytes). Shorten the text or the "
            "writing samples."_s.arg(config().maxBodyBytes));
    // A body the parser cannot read is answered; a client that went away or stalled is not.
    const bool unreadable = &error.category() == &http::make_error_code(http::error::bad_chunk).category()
        && error != http::error::end_of_stream && error != http::error::partial_message;
    if (unreadable)
        return refuse(
            400, u"invalid_request_error"_s, u"tessary-server could not read the request (HTTP 400)."_s);
    if (error)
        return shutdown();

    const RequestParse parse = parseRewriteRequest(QByteArray::fromStdString(m_body));
    m_body = {};
    if (!parse.request) {
        serverLog(u"#%1 refused: %2"_s.arg(m_id).arg(parse.error));
        return refuse(400, u"invalid_request_error"_s, parse.error);
    }
    if (++m_shared.activeStreams > config().maxStreams) {
        --m_shared.activeStreams;
        serverLog(u"#%1 refused: %2 rewrites already running"_s.arg(m_id).arg(config().maxStreams));
        return refuse(503, u"server_busy"_s,
            u"tessary-server is busy with %1 rewrites. Try again in a moment."_s.arg(config().maxStreams));
    }
    m_streaming = true;
    startStream(*parse.request);
}

bool RewriteServer::Session::authorized() const
{
    // Asked for explicitly, and only ever on a loopback address (the config refuses others).
    if (m_shared.config.noClientToken)
        return true;
    constexpr std::string_view prefix = "Bearer ";
    const std::string_view header = m_reader->authorization();
    if (!header.starts_with(prefix))
        return false;
    return sameSecret(header.substr(prefix.size()), m_shared.token);
}

void RewriteServer::Session::refuse(
    int status, const QString &type, const QString &message, std::string_view extra)
{
    // The rest of the request is never read, so the connection cannot carry another.
    sendWhole(wholeReply(status, errorBody(type, message), false, extra), false);
}

void RewriteServer::Session::sendWhole(std::string bytes, bool keepAlive)
{
    m_keepAlive = keepAlive;
    m_finishing = true;
    queue(std::move(bytes));
}

void RewriteServer::Session::startStream(const RewriteRequest &rewrite)
{
    m_timer.start();
    if (config().verbose) {
        serverLog(u"#%1 rewrite, tone \"%2\", text: %3"_s.arg(m_id).arg(
            logSafe(rewrite.tone), logSafe(rewrite.text)));
        for (const QString &sample : rewrite.examples)
            serverLog(u"#%1 sample: %2"_s.arg(m_id).arg(logSafe(sample)));
    } else {
        serverLog(u"#%1 rewrite: %2 characters, %3 samples, tone \"%4\""_s.arg(m_id)
                      .arg(rewrite.text.size())
                      .arg(rewrite.examples.size())
                      .arg(logSafe(rewrite.tone)));
    }

    // An HTTP/1.0 client cannot read chunks: its stream ends when the connection does.
    m_chunked = m_reader->version() >= 11;
    m_keepAlive = m_keepAlive && m_chunked;
    queue(replyHead(200, "text/event-stream", m_keepAlive,
        m_chunked ? "Cache-Control: no-cache\r\nX-Accel-Buffering: no\r\nTransfer-Encoding: chunked\r\n\r\n"
                  : "Cache-Control: no-cache\r\nX-Accel-Buffering: no\r\n\r\n"));

    auto self = shared_from_this();
    m_upstream = UpstreamCall::start(
        m_shared.io, { config().upstreamUrl, config().upstreamKey, config().upstreamTimeoutSeconds },
        chatCompletionBody(
            promptMessages(rewrite.examples, rewrite.tone, rewrite.text, config().sampleBudget),
            config().model),
        [self](const QString &fragment) { return self->queueEvent(fragmentEvent(fragment)); },
        [self](const UpstreamOutcome &outcome) { self->upstreamDone(outcome); });
    beat();
}

bool RewriteServer::Session::queueEvent(QByteArrayView event)
{
    if (!m_chunked)
        return queue(event.toByteArray().toStdString());
    std::string chunk = QByteArray::number(event.size(), 16).toStdString() + "\r\n";
    chunk.append(event.data(), size_t(event.size()));
    chunk += "\r\n";
    return queue(std::move(chunk));
}

bool RewriteServer::Session::queue(std::string bytes)
{
    if (m_gone)
        return false;
    m_unsentBytes += bytes.size();
    if (m_unsentBytes > maxUnsentBytes) {
        clientGone();
        return false;
    }
    m_lastWrite = std::chrono::steady_clock::now();
    m_outbox.push_back(std::move(bytes));
    if (!m_writing)
        writeNext();
    return true;
}

void RewriteServer::Session::writeNext()
{
    if (m_outbox.empty()) {
        m_writing = false;
        if (m_finishing)
            afterResponse();
        return;
    }
    m_writing = true;
    m_stream.expires_after(std::chrono::seconds(config().idleTimeoutSeconds));
    m_stream.async_write_some(asio::buffer(m_outbox.front()),
        [self = shared_from_this()](const beast::error_code &error, size_t written) {
            if (error)
                return self->clientGone();
            self->m_unsentBytes -= written;
            std::string &front = self->m_outbox.front();
            if (written < front.size())
                front.erase(0, written);
            else
                self->m_outbox.pop_front();
            self->writeNext();
        });
}

void RewriteServer::Session::beat()
{
    m_heartbeat.expires_after(heartbeatInterval);
    m_heartbeat.async_wait([self = shared_from_this()](const beast::error_code &error) {
        if (error || !self->m_upstream || self->m_gone)
            return;
        if (!self->m_writing && std::chrono::steady_clock::now() - self->m_lastWrite >= heartbeatInterval / 2)
            self->queueEvent(QByteArrayView(heartbeatEvent.data(), qsizetype(heartbeatEvent.size())));
        self->beat();
    });
}

void RewriteServer::Session::clientGone()
{
    if (m_gone)
        return;
    m_gone = true;
    m_heartbeat.cancel();
    // The upstream's report of the cancellation logs it and lets the session go.
    if (m_upstream)
        m_upstream->cancel();
    beast::error_code ignored;
    m_stream.socket().close(ignored);
}

void RewriteServer::Session::upstreamDone(const UpstreamOutcome &outcome)
{
    m_upstream.reset();
    m_heartbeat.cancel();
    m_streaming = false;
    --m_shared.activeStreams;
    if (m_gone || outcome.result == UpstreamOutcome::Result::Cancelled) {
        serverLog(u"#%1 client went away after %2 fragments; upstream request dropped"_s.arg(m_id).arg(
            outcome.fragments));
        return shutdown();
    }
    if (outcome.result == UpstreamOutcome::Result::Finished) {
        queueEvent(doneEvent);
        serverLog(
            u"#%1 done: %2 fragments in %3 ms"_s.arg(m_id).arg(outcome.fragments).arg(m_timer.elapsed()));
    } else {
        queueEvent(errorEvent(u"upstream_error"_s, outcome.message));
        serverLog(
            u"#%1 failed after %2 ms: %3"_s.arg(m_id).arg(m_timer.elapsed()).arg(logSafe(outcome.message)));
    }
    m_finishing = true;
    if (m_chunked)
        queue("0\r\n\r\n");
    else if (!m_writing)
        afterResponse();
}

void RewriteServer::Session::afterResponse()
{
    m_finishing = false;
    if (m_gone)
        return;
    if (m_keepAlive)
        return readHead();
    closeGracefully();
}

void RewriteServer::Session::closeGracefully()
{
    beast::error_code ignored;
    m_stream.socket().shutdown(tcp::socket::shutdown_send, ignored);
    m_stream.expires_after(m_drainTime);
    drain();
}

void RewriteServer::Session::drain()
{
    // Only ever read into and never looked at; the one event-loop thread makes sharing it safe.
    static char discard[16 * 1024];
    m_stream.async_read_some(
        asio::buffer(discard), [self = shared_from_this()](const beast::error_code &error, size_t read) {
            self->m_drained += read;
            if (error || self->m_drained > maxDrainBytes)
                return self->shutdown();
            self->drain();
        });
}

void RewriteServer::Shared::accept()
{
    acceptor.async_accept([this](const beast::error_code &error, tcp::socket socket) {
        if (error == asio::error::operation_aborted)
            return;
        if (error) {
            // Out of descriptors, most likely: give the connections being closed a moment.
            acceptPause.expires_after(100ms);
            acceptPause.async_wait([this](const beast::error_code &error) {
                if (!error)
                    accept();
            });
            return;
        }
        std::make_shared<Session>(*this, std::move(socket))->begin();
        accept();
    });
}

QByteArray RewriteServer::Shared::modelsReply() const
{
    QJsonArray models;
    if (!config.model.isEmpty())
        models.append(QJsonObject {
            { "id"_L1, config.model }, { "object"_L1, "model"_L1 }, { "owned_by"_L1, "tessary-server"_L1 } });
    return QJsonDocument(QJsonObject { { "object"_L1, "list"_L1 }, { "data"_L1, models } })
        .toJson(QJsonDocument::Compact);
}

QByteArray RewriteServer::Shared::versionReply() const
{
    const QJsonObject data {
        { "current_version"_L1, config.releaseVersion },
        { "download_url"_L1, config.releaseDownloadUrl },
        { "release_notes"_L1, config.releaseNotes },
        { "force_update"_L1, config.releaseForceUpdate },
        { "minimum_supported_version"_L1, config.releaseMinimumVersion },
    };
    const QJsonObject reply { { "success"_L1, true }, { "data"_L1, data }, { "error"_L1, QJsonValue::Null } };
    return QJsonDocument(reply).toJson(QJsonDocument::Compact);
}

RewriteServer::RewriteServer(ServerConfig config)
    : d(std::make_unique<Shared>(std::move(config)))
{
    // A client that hangs up mid-write must cost us that connection, not the process.
    std::signal(SIGPIPE, SIG_IGN);
}

RewriteServer::~RewriteServer()
{
    stop();
}

bool RewriteServer::bind()
{
    beast::error_code error;
    const std::string host = d->config.listenAddress.toStdString();
    asio::ip::address address = asio::ip::make_address(host, error);
    if (error) {
        tcp::resolver resolver(d->io);
        const auto found = resolver.resolve(host, std::string(), error);
        if (!error && !found.empty())
            address = found.begin()->endpoint().address();
    }
    const tcp::endpoint endpoint(address, std::uint16_t(d->config.port));
    // SO_REUSEADDR lets a restarted server take over from connections in TIME_WAIT; without
    // SO_REUSEPORT a second server cannot bind the same port and take half our clients.
    if (!error)
        d->acceptor.open(endpoint.protocol(), error);
    if (!error)
        d->acceptor.set_option(tcp::acceptor::reuse_address(true), error);
    if (!error)
        d->acceptor.bind(endpoint, error);
    if (!error)
        d->acceptor.listen(asio::socket_base::max_listen_connections, error);
    if (error) {
        beast::error_code ignored;
        d->acceptor.close(ignored);
        d->error = u"cannot listen on %1:%2 (in use, or not an address of this machine)"_s
                       .arg(d->config.listenAddress)
                       .arg(d->config.port);
        return false;
    }
    d->port = d->acceptor.local_endpoint().port();
    return true;
}

int RewriteServer::port() const
{
    return d->port;
}

QString RewriteServer::error() const
{
    return d->error;
}

int RewriteServer::activeStreams() const
{
    return d->activeStreams;
}

void RewriteServer::run()
{
    d->accept();
    d->io.run();
}

bool RewriteServer::start()
{
    if (d->port <= 0 && !bind())
        return false;
    d->thread = std::thread([this] { run(); });
    return true;
}

void RewriteServer::stop()
{
    asio::post(d->io, [shared = d.get()] {
        beast::error_code ignored;
        shared->acceptor.close(ignored);
        shared->acceptPause.cancel();
        std::vector<std::shared_ptr<Session>> open;
        for (const std::weak_ptr<Session> &entry : shared->sessions) {
            if (auto session = entry.lock())
                open.push_back(std::move(session));
        }
        for (const auto &session : open)
            session->shutdown();
        shared->io.stop();
    });
    if (d->thread.joinable())
        d->thread.join();
}
