#include "RewriteServer.h"

#include "EventStream.h"
#include "HttpMessageReader.h"
#include "Limits.h"
#include "Metrics.h"
#include "ModelListProbe.h"
#include "Prompt.h"
#include "RewriteRequest.h"
#include "ServerLog.h"
#include "TokenStore.h"
#include "Upstream.h"
#include "UpstreamPool.h"

#include <QElapsedTimer>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

#include <atomic>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/ssl.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/write.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/status.hpp>
#include <boost/beast/ssl/ssl_stream.hpp>
#include <csignal>
#include <deque>
#include <list>
#include <map>
#include <optional>
#include <sys/socket.h>
#include <sys/stat.h>
#include <thread>
#include <variant>
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
// For monitoring and load balancers: no token needed (unless metrics_token is set).
constexpr std::string_view healthPath = "/healthz";
constexpr std::string_view readyPath = "/readyz";
constexpr std::string_view metricsPath = "/metrics";
// A model list that takes longer than this counts as no answer.
constexpr auto probeDeadline = 5s;
// Past the drain, what still runs is cut this long after its error event was sent.
constexpr auto afterDrainGrace = 3s;
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
        , tokens(this->config.tokensFile)
        , limits({ this->config.maxStreams, this->config.maxStreamsPerToken,
              this->config.requestsPerMinutePerToken,
              std::chrono::milliseconds(this->config.rateWindowMilliseconds) })
        , pool(QStringList { this->config.upstreamUrl } + this->config.fallbackUrls,
              std::chrono::milliseconds(this->config.upstreamCoolDownMilliseconds))
    {
    }

    void accept();
    QByteArray versionReply() const;
    QByteArray modelsReply() const;
    // The name of the person a token belongs to; empty when it lets nobody in.
    QString nameOf(std::string_view bearer) const;
    void watchTokens();
    void reloadTokensIfChanged();
    void probeUpstreams();
    void beginShutdown(std::chrono::milliseconds drain);
    std::vector<std::shared_ptr<Session>> openSessions() const;
    // Makes room for a newcomer by closing the oldest connection that has shown no valid
    // token; with `from`, only among those from that address. False when there is none.
    bool evictUnproven(const Session *newcomer, const std::optional<asio::ip::address> &from);

    ServerConfig config;
    std::string token;
    TokenStore tokens;
    // What identifies the tokens file's version on disk: changed, it is read again.
    std::tuple<bool, qint64, qint64, quint64> tokensStamp { false, 0, 0, 0 };
    Limits limits;
    Metrics metrics;
    UpstreamPool pool;
    std::vector<std::function<void()>> probesRunning; // each drops its probe
    int probesPending = 0;
    bool draining = false;
    std::atomic<int> activeStreams { 0 };
    quint64 nextRequestId = 1;
    int connections = 0;
    std::map<asio::ip::address, int> perAddress;
    std::list<std::weak_ptr<Session>> sessions;
    int port = -1;
    QString error;
    std::optional<asio::ssl::context> tls; // with tls_cert and tls_key
    // Declared after everything a session touches: destroying the event loop destroys
    // the sessions its pending operations still hold.
    asio::io_context io { 1 };
    tcp::acceptor acceptor { io };
    asio::steady_timer acceptPause { io };
    asio::steady_timer tokensPoll { io };
    asio::steady_timer probeTimer { io };
    asio::steady_timer drainTimer { io };
    std::thread thread;
};

class RewriteServer::Session : public std::enable_shared_from_this<Session>
{
public:
    Session(Shared &shared, tcp::socket socket)
        : m_shared(shared)
        , m_stream(plainOrSecure(shared, std::move(socket)))
        , m_buffer(size_t(shared.config.maxHeaderBytes) + 4096)
        , m_heartbeat(shared.io)
    {
    }
    ~Session();

    void begin();
    void shutdown();
    // The server is stopping: an idle connection closes now, a running stream goes on.
    void drainStarted();
    // The drain is over: a running stream ends with an error event and a proper end.
    void cutShort();
    bool proven() const { return m_proven; }
    bool counted() const { return m_counted; }
    const asio::ip::address &address() const { return m_address; }
    void uncount();

private:
    const ServerConfig &config() const { return m_shared.config; }
    void readHead();
    void onHead(const beast::error_code &error);
    void readBody();
    void onBody(const beast::error_code &error);
    QString authorized() const; // the token's name, empty without a valid one
    void refuse(int status, const QString &type, const QString &message, std::string_view extra = {});
    void refuseRewrite(const QString &outcome, int status, const QString &type, const QString &message,
        std::string_view extra = {});
    void sendWhole(std::string bytes, bool keepAlive);
    void serveMonitoring(std::string_view path, bool keepAlive);
    void startStream(const RewriteRequest &rewrite);
    void callUpstream(int index);
    void endStream();
    bool queue(std::string bytes);
    bool queueEvent(QByteArrayView event);
    void writeNext();
    void beat();
    void clientGone();
    void upstreamDone(const UpstreamOutcome &outcome);
    void afterResponse();
    void closeGracefully();
    void drain();

    Shared &m_shared;
    using PlainStream = beast::tcp_stream;
    using SecureStream = beast::ssl_stream<beast::tcp_stream>;
    using Stream = std::variant<PlainStream, SecureStream>;
    static Stream plainOrSecure(Shared &shared, tcp::socket socket)
    {
        if (shared.tls)
            return Stream(std::in_place_type<SecureStream>, std::move(socket), *shared.tls);
        return Stream(std::in_place_type<PlainStream>, std::move(socket));
    }
    // The TCP connection under TLS or not: for deadlines, options and closing.
    beast::tcp_stream &tcp()
    {
        return std::visit(
            [](auto &stream) -> beast::tcp_stream & { return beast::get_lowest_layer(stream); }, m_stream);
    }
    void handshake();
    Stream m_stream;
    asio::ip::address m_address;
    std::list<std::weak_ptr<Session>>::iterator m_entry;
    bool m_registered = false;
    bool m_counted = false; // in the connection counts
    bool m_proven = false; // has presented a valid token: never closed to make room
    bool m_awaitingHead = false;
    std::chrono::milliseconds m_drainTime = drainTime;
    beast::flat_buffer m_buffer;
    std::optional<HttpMessageReader<true>> m_reader;
    std::string m_body;
    int m_requests = 0;
    bool m_keepAlive = false;

    quint64 m_id = 0;
    QString m_name; // the token's
    QElapsedTimer m_timer;
    std::shared_ptr<UpstreamCall> m_upstream;
    QByteArray m_upstreamBody; // kept until text arrives, for a second upstream
    int m_upstreamIndex = -1;
    bool m_triedAnother = false;
    bool m_sentText = false;
    bool m_cutShort = false;
    QElapsedTimer m_upstreamTimer;
    asio::steady_timer m_heartbeat;
    std::chrono::steady_clock::time_point m_lastWrite;
    bool m_streaming = false; // counted in activeStreams and in the limits
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
        endStream();
    if (!m_registered)
        return;
    m_shared.sessions.erase(m_entry);
    if (m_counted)
        uncount();
    // The last connection gone: nothing is left to wait for.
    if (m_shared.draining && m_shared.sessions.empty())
        m_shared.drainTimer.cancel();
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
    m_address = tcp().socket().remote_endpoint(error).address();
    if (error)
        return; // gone before we looked
    tcp().socket().set_option(tcp::no_delay(true), error);
    m_entry = m_shared.sessions.insert(m_shared.sessions.end(), weak_from_this());
    m_registered = true;
    m_counted = true;
    ++m_shared.connections;
    const int fromAddress = ++m_shared.perAddress[m_address];
    // Refused at once, not queued: a client learns it should come back later. Not counted
    // while the refusal goes out, or a flood of refused clients would hold the door shut
    // for everybody else.
    // Connections that have shown no valid token give way first, so a flood of slow heads
    // cannot keep out someone who has one.
    bool full = m_shared.connections > config().maxConnections;
    if (full && m_shared.evictUnproven(this, std::nullopt))
        full = false;
    bool fullHere = fromAddress > config().maxConnectionsPerAddress;
    if (fullHere && m_shared.evictUnproven(this, m_address))
        fullHere = false;
    if (full || fullHere) {
        uncount();
        if (std::holds_alternative<SecureStream>(m_stream))
            return shutdown(); // an answer would cost a handshake first

        m_drainTime = turnedAwayDrainTime;
        return refuse(503, u"server_busy"_s,
            u"tessary-server has too many open connections. Try again in a moment."_s, "Retry-After: 1\r\n");
    }
    handshake();
}

void RewriteServer::Session::shutdown()
{
    m_gone = true;
    m_heartbeat.cancel();
    if (m_upstream)
        m_upstream->cancel();
    beast::error_code ignored;
    tcp().socket().close(ignored);
}

void RewriteServer::Session::handshake()
{
    auto *secure = std::get_if<SecureStream>(&m_stream);
    if (!secure)
        return readHead();
    m_awaitingHead = true;
    // The handshake is part of the head: it must be over within the same time.
    tcp().expires_after(std::chrono::seconds(config().requestHeadSeconds));
    secure->async_handshake(
        asio::ssl::stream_base::server, [self = shared_from_this()](const beast::error_code &error) {
            if (error)
                return self->shutdown();
            self->readHead();
        });
}

void RewriteServer::Session::drainStarted()
{
    // Idle only when nothing of a next request has come, read or still in the socket.
    beast::error_code error;
    if (m_awaitingHead && m_buffer.size() == 0 && tcp().socket().available(error) == 0)
        shutdown();
}

void RewriteServer::Session::cutShort()
{
    if (!m_upstream)
        return shutdown();
    m_cutShort = true;
    m_upstream->cancel(); // its report ends the stream with an error event
}

void RewriteServer::Session::readHead()
{
    m_awaitingHead = true;
    m_reader.emplace(config().maxHeaderFields);
    m_reader->header_limit(std::uint32_t(config().maxHeaderBytes));
    // The length a client announces is judged after its token, not while reading the head.
    m_reader->body_limit(boost::none);
    // The whole head must arrive by then, however slowly its bytes trickle in.
    tcp().expires_after(std::chrono::seconds(config().requestHeadSeconds));
    std::visit(
        [this](auto &stream) {
            http::async_read_header(stream, m_buffer, *m_reader,
                [self = shared_from_this()](const beast::error_code &error, size_t) { self->onHead(error); });
        },
        m_stream);
}

void RewriteServer::Session::onHead(const beast::error_code &error)
{
    m_awaitingHead = false;
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

    m_keepAlive = m_reader->keep_alive() && ++m_requests < maxRequestsPerConnection && !m_shared.draining;
    const std::string_view target = m_reader->target();
    const std::string_view path = target.substr(0, target.find('?'));
    const std::string_view method = m_reader->method();
    const bool hasBody = m_reader->chunked() || m_reader->content_length().value_or(0) > 0;
    const bool keepAlive = m_keepAlive && !hasBody;
    const QString name = authorized();
    if (!name.isEmpty())
        m_proven = true;
    if (path == versionPath && method == "GET")
        return sendWhole(wholeReply(200, m_shared.versionReply(), keepAlive), keepAlive);
    if ((path == healthPath || path == readyPath || path == metricsPath) && method == "GET")
        return serveMonitoring(path, keepAlive);
    if (path == modelsPath && method == "GET") {
        if (name.isEmpty())
            return refuse(401, u"invalid_request_error"_s,
                u"Invalid API key: enter the client token of tessary-server (kept in "
                "~/.config/tessary-server/client-token) in Tessary's Settings."_s,
                "WWW-Authenticate: Bearer\r\n");
        return sendWhole(wholeReply(200, m_shared.modelsReply(), keepAlive), keepAlive);
    }
    if (path != completionsPath || method != "POST")
        return refuse(path == completionsPath || path == versionPath ? 405 : 404, u"invalid_request_error"_s,
            u"tessary-server answers POST %1 and GET %2 only."_s.arg(
                QLatin1StringView(completionsPath), QLatin1StringView(versionPath)));

    m_id = m_shared.nextRequestId++;
    // Before a byte of the body is read: without the token, a client gets nothing more from us.
    if (name.isEmpty()) {
        serverLog(u"#%1 refused: missing or wrong client token"_s.arg(m_id));
        m_shared.metrics.request(u"-"_s, u"unauthorized"_s);
        return refuse(401, u"invalid_request_error"_s,
            u"Invalid API key: enter the client token of tessary-server (kept in "
            "~/.config/tessary-server/client-token) in Tessary's Settings."_s,
            "WWW-Authenticate: Bearer\r\n");
    }
    m_name = name;
    if (m_shared.draining)
        return refuseRewrite(u"refused_stopping"_s, 503, u"server_busy"_s,
            u"tessary-server is restarting. Try again in a moment."_s, "Retry-After: 1\r\n");
    if (m_reader->content_length().value_or(0) > std::uint64_t(config().maxBodyBytes))
        return onBody(http::error::body_limit);
    // Whatever the framing: a chunked body stops at the same size, its framing included.
    m_reader->body_limit(std::uint64_t(config().maxBodyBytes));
    m_reader->wireBodyLimit(std::uint64_t(config().maxBodyBytes));
    m_body.clear();
    m_reader->onBody([this](std::string_view bytes) {
        m_body.append(bytes);
        return true;
    });
    if (!m_reader->expectsContinue())
        return readBody();
    static constexpr std::string_view goOn = "HTTP/1.1 100 Continue\r\n\r\n";
    tcp().expires_after(std::chrono::seconds(config().idleTimeoutSeconds));
    std::visit(
        [this](auto &stream) {
            asio::async_write(stream, asio::buffer(goOn),
                [self = shared_from_this()](const beast::error_code &error, size_t) {
                    if (error)
                        return self->shutdown();
                    self->readBody();
                });
        },
        m_stream);
}

void RewriteServer::Session::readBody()
{
    tcp().expires_after(std::chrono::seconds(config().idleTimeoutSeconds));
    std::visit(
        [this](auto &stream) {
            http::async_read(stream, m_buffer, *m_reader,
                [self = shared_from_this()](const beast::error_code &error, size_t) { self->onBody(error); });
        },
        m_stream);
}

void RewriteServer::Session::onBody(const beast::error_code &error)
{
    if (error == http::error::body_limit)
        return refuseRewrite(u"too_large"_s, 413, u"invalid_request_error"_s,
            u"The request is larger than tessary-server accepts (%1 bytes). Shorten the text or the "
            "writing samples."_s.arg(config().maxBodyBytes));
    // A body the parser cannot read is answered; a client that went away or stalled is not.
    const bool unreadable = &error.category() == &http::make_error_code(http::error::bad_chunk).category()
        && error != http::error::end_of_stream && error != http::error::partial_message;
    if (unreadable)
        return refuseRewrite(u"bad_request"_s, 400, u"invalid_request_error"_s,
            u"tessary-server could not read the request (HTTP 400)."_s);
    if (error) {
        m_shared.metrics.request(m_name, u"client_gone"_s);
        return shutdown();
    }

    const RequestParse parse = parseRewriteRequest(QByteArray::fromStdString(m_body));
    m_body = {};
    if (!parse.request) {
        serverLog(u"#%1 refused: %2"_s.arg(m_id).arg(parse.error));
        return refuseRewrite(u"bad_request"_s, 400, u"invalid_request_error"_s, parse.error);
    }
    if (const auto refusal = m_shared.limits.admit(m_name)) {
        serverLog(u"#%1 refused: %2 reached"_s.arg(m_id).arg(refusal->limit));
        m_shared.metrics.limitRefused(refusal->limit);
        return refuseRewrite(u"rate_limited"_s, 429, u"rate_limit_error"_s, refusal->message,
            "Retry-After: " + std::to_string(refusal->retryAfterSeconds) + "\r\n");
    }
    ++m_shared.activeStreams;
    m_streaming = true;
    startStream(*parse.request);
}

QString RewriteServer::Session::authorized() const
{
    // Asked for explicitly, and only ever on a loopback address (the config refuses others).
    if (m_shared.config.noClientToken)
        return u"default"_s;
    constexpr std::string_view prefix = "Bearer ";
    const std::string_view header = m_reader->authorization();
    if (!header.starts_with(prefix))
        return {};
    return m_shared.nameOf(header.substr(prefix.size()));
}

void RewriteServer::Session::refuse(
    int status, const QString &type, const QString &message, std::string_view extra)
{
    // The rest of the request is never read, so the connection cannot carry another.
    sendWhole(wholeReply(status, errorBody(type, message), false, extra), false);
}

void RewriteServer::Session::refuseRewrite(
    const QString &outcome, int status, const QString &type, const QString &message, std::string_view extra)
{
    m_shared.metrics.request(m_name.isEmpty() ? u"-"_s : m_name, outcome);
    refuse(status, type, message, extra);
}

void RewriteServer::Session::serveMonitoring(std::string_view path, bool keepAlive)
{
    if (path == healthPath)
        return sendWhole(wholeReply(200, R"({"status":"ok"})", keepAlive), keepAlive);
    if (path == readyPath) {
        QString reason;
        if (m_shared.draining)
            reason = u"tessary-server is stopping"_s;
        else
            m_shared.pool.ready(std::chrono::steady_clock::now(),
                std::chrono::milliseconds(config().readyWindowMilliseconds), &reason);
        if (reason.isEmpty())
            return sendWhole(wholeReply(200, R"({"status":"ready"})", keepAlive), keepAlive);
        return sendWhole(
            wholeReply(503,
                QJsonDocument(QJsonObject { { "status"_L1, "not ready"_L1 }, { "reason"_L1, reason } })
                    .toJson(QJsonDocument::Compact),
                keepAlive, "Retry-After: 1\r\n"),
            keepAlive);
    }
    if (!config().metricsToken.isEmpty()
        && !sameSecret(m_reader->authorization(), "Bearer " + config().metricsToken.toStdString()))
        return refuse(401, u"invalid_request_error"_s, u"/metrics wants the metrics_token."_s,
            "WWW-Authenticate: Bearer\r\n");
    const QByteArray text = m_shared.metrics.text(m_shared.limits.openStreams());
    sendWhole(replyHead(200, "text/plain; version=0.0.4; charset=utf-8", keepAlive)
            + "Content-Length: " + std::to_string(text.size()) + "\r\n\r\n" + text.toStdString(),
        keepAlive);
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

    // A keep-alive connection carries one request after another: each starts afresh.
    m_sentText = false;
    m_triedAnother = false;
    m_upstreamBody = chatCompletionBody(promptMessages(rewrite.examples, rewrite.tone, rewrite.text,
                                            config().sampleBudget, rewrite.instruction),
        config().model);
    callUpstream(m_shared.pool.pick(std::chrono::steady_clock::now()));
    beat();
}

void RewriteServer::Session::callUpstream(int index)
{
    m_upstreamIndex = index;
    m_upstreamTimer.start();
    auto self = shared_from_this();
    m_upstream = UpstreamCall::start(
        m_shared.io,
        { m_shared.pool.urls().value(index), config().upstreamKey, config().upstreamTimeoutSeconds },
        m_upstreamBody,
        [self](const QString &fragment) {
            if (!self->m_sentText) {
                self->m_sentText = true;
                self->m_upstreamBody = {}; // no other upstream will be asked now
                self->m_shared.metrics.firstFragment(self->m_timer.nsecsElapsed() / 1e9);
                self->m_shared.metrics.upstreamAnswered(
                    shownUpstreamUrl(self->m_shared.pool.urls().value(self->m_upstreamIndex)),
                    self->m_upstreamTimer.nsecsElapsed() / 1e9);
            }
            self->m_shared.metrics.fragmentRelayed();
            return self->queueEvent(fragmentEvent(fragment));
        },
        [self](const UpstreamOutcome &outcome) { self->upstreamDone(outcome); });
}

void RewriteServer::Session::endStream()
{
    m_streaming = false;
    --m_shared.activeStreams;
    m_shared.limits.release(m_name);
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
    tcp().expires_after(std::chrono::seconds(config().idleTimeoutSeconds));
    std::visit(
        [this](auto &stream) {
            stream.async_write_some(asio::buffer(m_outbox.front()),
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
        },
        m_stream);
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
    tcp().socket().close(ignored);
}

void RewriteServer::Session::upstreamDone(const UpstreamOutcome &outcome)
{
    m_upstream.reset();
    const auto now = std::chrono::steady_clock::now();
    const QString upstream = shownUpstreamUrl(m_shared.pool.urls().value(m_upstreamIndex));
    if (!m_sentText && outcome.result == UpstreamOutcome::Result::Failed)
        m_shared.metrics.upstreamAnswered(upstream, m_upstreamTimer.nsecsElapsed() / 1e9);
    // A model server that is down or failing gets a rest; the request moves on, once, and
    // only while the client has seen no text.
    if (outcome.tryAnother && !m_sentText && !m_gone && !m_cutShort) {
        m_shared.pool.failed(m_upstreamIndex, now);
        const int next = m_triedAnother ? -1 : m_shared.pool.pick(now, m_upstreamIndex);
        if (next >= 0) {
            serverLog(u"#%1 %2 failed before any text; trying %3"_s.arg(m_id).arg(
                upstream, shownUpstreamUrl(m_shared.pool.urls().value(next))));
            m_triedAnother = true;
            return callUpstream(next);
        }
    }
    m_upstreamBody = {};
    m_heartbeat.cancel();
    endStream();
    m_shared.metrics.streamEnded(m_timer.nsecsElapsed() / 1e9);
    if (m_cutShort && !m_gone && outcome.result == UpstreamOutcome::Result::Cancelled) {
        m_shared.metrics.request(m_name, u"cut_short"_s);
        queueEvent(errorEvent(u"server_busy"_s,
            u"tessary-server is restarting and ended this rewrite. Try again in a moment."_s));
        serverLog(u"#%1 cut short by the restart after %2 fragments"_s.arg(m_id).arg(outcome.fragments));
        m_keepAlive = false;
    } else if (m_gone || outcome.result == UpstreamOutcome::Result::Cancelled) {
        m_shared.metrics.request(m_name, u"client_gone"_s);
        serverLog(u"#%1 client went away after %2 fragments; upstream request dropped"_s.arg(m_id).arg(
            outcome.fragments));
        return shutdown();
    } else if (outcome.result == UpstreamOutcome::Result::Finished) {
        m_shared.metrics.request(m_name, u"finished"_s);
        queueEvent(doneEvent);
        serverLog(
            u"#%1 done: %2 fragments in %3 ms"_s.arg(m_id).arg(outcome.fragments).arg(m_timer.elapsed()));
    } else {
        m_shared.metrics.request(m_name, u"upstream_error"_s);
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
    if (m_keepAlive && !m_shared.draining)
        return readHead();
    closeGracefully();
}

void RewriteServer::Session::closeGracefully()
{
    beast::error_code ignored;
    tcp().socket().shutdown(tcp::socket::shutdown_send, ignored);
    tcp().expires_after(m_drainTime);
    drain();
}

void RewriteServer::Session::drain()
{
    // Only ever read into and never looked at; the one event-loop thread makes sharing it safe.
    static char discard[16 * 1024];
    std::visit(
        [this](auto &stream) {
            stream.async_read_some(asio::buffer(discard),
                [self = shared_from_this()](const beast::error_code &error, size_t read) {
                    self->m_drained += read;
                    if (error || self->m_drained > maxDrainBytes)
                        return self->shutdown();
                    self->drain();
                });
        },
        m_stream);
}

void RewriteServer::Shared::accept()
{
    acceptor.async_accept([this](const beast::error_code &error, tcp::socket socket) {
        if (error == asio::error::operation_aborted || draining)
            return;
        if (error) {
            // Out of descriptors, most likely: give the connections being closed a moment.
            acceptPause.expires_after(100ms);
            acceptPause.async_wait([this](const beast::error_code &error) {
                if (!error && !draining)
                    accept();
            });
            return;
        }
        std::make_shared<Session>(*this, std::move(socket))->begin();
        accept();
    });
}

QString RewriteServer::Shared::nameOf(std::string_view bearer) const
{
    if (sameSecret(bearer, token))
        return u"default"_s;
    return tokens.nameOf(QByteArrayView(bearer.data(), qsizetype(bearer.size())));
}

void RewriteServer::Shared::watchTokens()
{
    tokensPoll.expires_after(std::chrono::milliseconds(config.tokensPollMilliseconds));
    // A wait that completed just before the shutdown cancelled it must not start another.
    tokensPoll.async_wait([this](const beast::error_code &error) {
        if (error || draining)
            return;
        reloadTokensIfChanged();
        watchTokens();
    });
}

void RewriteServer::Shared::reloadTokensIfChanged()
{
    // A stat on a small local file: cheap enough for the event loop once a second. The
    // file is replaced whole, so a new inode or time says it changed.
    struct stat info = {};
    const bool exists = ::stat(QFile::encodeName(config.tokensFile).constData(), &info) == 0;
    const auto stamp = exists
        ? std::tuple(true, qint64(info.st_mtim.tv_sec) * 1000000000 + info.st_mtim.tv_nsec,
            qint64(info.st_size), quint64(info.st_ino))
        : std::tuple(false, qint64(0), qint64(0), quint64(0));
    if (stamp == tokensStamp)
        return;
    TokenStore next(config.tokensFile);
    if (!next.load()) {
        // The tokens in force stay until the file can be read again.
        serverLog(u"tokens not reloaded: %1"_s.arg(next.error()));
        tokensStamp = stamp;
        return;
    }
    const bool first
        = !std::get<0>(tokensStamp) && std::get<1>(tokensStamp) == 0 && tokens.entries().isEmpty();
    tokensStamp = stamp;
    tokens = std::move(next);
    if (exists || !first)
        serverLog(u"tokens: %1 in force from %2"_s.arg(tokens.entries().size()).arg(config.tokensFile));
}

void RewriteServer::Shared::probeUpstreams()
{
    probesRunning.clear();
    probesPending = int(pool.urls().size());
    for (int i = 0; i < pool.urls().size(); ++i) {
        probesRunning.push_back(ModelListProbe::start(
            io, pool.urls()[i], config.upstreamKey, probeDeadline, [this, i](bool answered, const QString &) {
                const auto now = std::chrono::steady_clock::now();
                // Only readiness follows the probes: requests alone decide the cool-downs.
                if (answered)
                    pool.answered(i, now);
                if (--probesPending > 0 || draining)
                    return;
                probesRunning.clear();
                probeTimer.expires_after(std::chrono::milliseconds(config.readinessProbeMilliseconds));
                probeTimer.async_wait([this](const beast::error_code &error) {
                    if (!error && !draining)
                        probeUpstreams();
                });
            }));
    }
}

std::vector<std::shared_ptr<RewriteServer::Session>> RewriteServer::Shared::openSessions() const
{
    std::vector<std::shared_ptr<Session>> open;
    for (const std::weak_ptr<Session> &entry : sessions) {
        if (auto session = entry.lock())
            open.push_back(std::move(session));
    }
    return open;
}

bool RewriteServer::Shared::evictUnproven(
    const Session *newcomer, const std::optional<asio::ip::address> &from)
{
    // Oldest first: the newest is the one asking for room.
    for (const std::weak_ptr<Session> &entry : sessions) {
        auto session = entry.lock();
        if (!session || session.get() == newcomer || session->proven() || !session->counted()
            || (from && session->address() != *from))
            continue;
        session->uncount();
        session->shutdown();
        return true;
    }
    return false;
}

void RewriteServer::Shared::beginShutdown(std::chrono::milliseconds drain)
{
    if (draining)
        return;
    draining = true;
    beast::error_code ignored;
    acceptor.close(ignored);
    acceptPause.cancel();
    tokensPoll.cancel();
    probeTimer.cancel();
    for (const auto &dropProbe : probesRunning)
        dropProbe();
    probesRunning.clear();
    for (const auto &session : openSessions())
        session->drainStarted();
    drainTimer.expires_after(drain);
    drainTimer.async_wait([this](const beast::error_code &error) {
        if (error || sessions.empty())
            return; // every connection closed before the drain was over
        for (const auto &session : openSessions())
            session->cutShort();
        // A client that does not read its error event is not waited for.
        drainTimer.expires_after(afterDrainGrace);
        drainTimer.async_wait([this](const beast::error_code &error) {
            if (error)
                return;
            for (const auto &session : openSessions())
                session->shutdown();
        });
    });
    if (sessions.empty())
        drainTimer.cancel();
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
    d->reloadTokensIfChanged();
}

RewriteServer::~RewriteServer()
{
    stop(std::chrono::milliseconds(0));
}

bool RewriteServer::loadTls()
{
    if (d->config.tlsCert.isEmpty())
        return true;
    beast::error_code error;
    d->tls.emplace(asio::ssl::context::tls_server);
    d->tls->set_options(asio::ssl::context::default_workarounds | asio::ssl::context::no_sslv2
        | asio::ssl::context::no_sslv3 | asio::ssl::context::no_tlsv1 | asio::ssl::context::no_tlsv1_1);
    d->tls->use_certificate_chain_file(d->config.tlsCert.toStdString(), error);
    if (error) {
        d->error
            = u"cannot use tls_cert %1: %2"_s.arg(d->config.tlsCert, QString::fromStdString(error.message()));
        return false;
    }
    d->tls->use_private_key_file(d->config.tlsKey.toStdString(), asio::ssl::context::pem, error);
    if (error) {
        d->error
            = u"cannot use tls_key %1: %2"_s.arg(d->config.tlsKey, QString::fromStdString(error.message()));
        return false;
    }
    return true;
}

bool RewriteServer::bind()
{
    if (!loadTls())
        return false;
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

bool RewriteServer::adopt(int descriptor)
{
    if (!loadTls())
        return false;
    sockaddr_storage address = {};
    socklen_t length = sizeof address;
    beast::error_code error;
    if (::getsockname(descriptor, reinterpret_cast<sockaddr *>(&address), &length) != 0
        || (address.ss_family != AF_INET && address.ss_family != AF_INET6)) {
        d->error = u"the socket handed over is not a TCP socket"_s;
        return false;
    }
    d->acceptor.assign(address.ss_family == AF_INET ? tcp::v4() : tcp::v6(), descriptor, error);
    if (error) {
        d->error
            = u"cannot take over the socket handed over: %1"_s.arg(QString::fromStdString(error.message()));
        return false;
    }
    d->port = d->acceptor.local_endpoint(error).port();
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
    d->watchTokens();
    d->probeUpstreams();
    // Returns once the shutdown has let every connection and timer go.
    d->io.run();
}

bool RewriteServer::start()
{
    if (d->port <= 0 && !bind())
        return false;
    d->thread = std::thread([this] { run(); });
    return true;
}

void RewriteServer::stop(std::chrono::milliseconds drain)
{
    if (!d->thread.joinable())
        return;
    asio::post(d->io, [shared = d.get(), drain] { shared->beginShutdown(drain); });
    d->thread.join();
}
