#include "RewriteServer.h"

#include "ClientWatch.h"
#include "EventStream.h"
#include "Prompt.h"
#include "RewriteRequest.h"
#include "ServerLog.h"
#include "Upstream.h"

#include <QElapsedTimer>
#include <QJsonDocument>
#include <QJsonObject>

#include <csignal>
#include <httplib.h>
#include <sys/socket.h>

using namespace Qt::StringLiterals;

namespace {

constexpr auto completionsPath = "/api/v1/chat/completions";
constexpr auto versionPath = "/api/v1/version";

void replyError(httplib::Response &response, int status, const QString &type, const QString &message)
{
    response.status = status;
    response.set_content(errorBody(type, message).toStdString(), "application/json");
}

// Compares without an early exit, so the time taken says nothing about the token.
bool sameSecret(const std::string &given, const std::string &expected)
{
    unsigned char difference = given.size() == expected.size() ? 0 : 1;
    for (size_t i = 0; i < given.size(); ++i)
        difference |= static_cast<unsigned char>(given[i] ^ expected[i % expected.size()]);
    return difference == 0 && !expected.empty();
}

} // namespace

RewriteServer::RewriteServer(ServerConfig config)
    : m_config(std::move(config))
    , m_server(std::make_unique<httplib::Server>())
    , m_watch(std::make_unique<ClientWatch>())
{
    // A client that hangs up mid-write must cost us that connection, not the process.
    std::signal(SIGPIPE, SIG_IGN);

    // Every streaming rewrite holds one thread while it runs; a few more keep /version
    // and refusals answered when all streams are busy.
    const size_t threads = size_t(m_config.maxStreams) + 8;
    m_server->new_task_queue = [threads] { return new httplib::ThreadPool(threads); };
    m_server->set_tcp_nodelay(true);
    m_server->set_payload_max_length(size_t(m_config.maxBodyBytes));
    m_server->set_read_timeout(m_config.idleTimeoutSeconds);
    m_server->set_write_timeout(m_config.idleTimeoutSeconds);
    m_server->set_keep_alive_timeout(5);
    m_server->set_keep_alive_max_count(100);

    m_server->set_pre_routing_handler([this](const httplib::Request &request, httplib::Response &response) {
        size_t headerBytes = 0;
        for (const auto &[name, value] : request.headers)
            headerBytes += name.size() + value.size() + 4;
        if (headerBytes <= size_t(m_config.maxHeaderBytes))
            return httplib::Server::HandlerResponse::Unhandled;
        replyError(response, 431, u"invalid_request_error"_s,
            u"The request headers are larger than tessary-server accepts (%1 bytes)."_s.arg(
                m_config.maxHeaderBytes));
        return httplib::Server::HandlerResponse::Handled;
    });
    m_server->Post(completionsPath, [this](const httplib::Request &request, httplib::Response &response) {
        handleRewrite(request, response);
    });
    m_server->Get(versionPath, [this](const httplib::Request &request, httplib::Response &response) {
        handleVersion(request, response);
    });
    // The library's own refusals (too large, unknown path, unreadable request) get the
    // error object clients know how to show.
    m_server->set_error_handler(httplib::Server::HandlerWithResponse([this](const httplib::Request &,
                                                                         httplib::Response &response) {
        if (!response.body.empty())
            return httplib::Server::HandlerResponse::Unhandled;
        QString message;
        switch (response.status) {
        case 413:
            message
                = u"The request is larger than tessary-server accepts (%1 bytes). Shorten the text or the "
                  "writing samples."_s.arg(m_config.maxBodyBytes);
            break;
        case 404:
        case 405:
            message = u"tessary-server answers POST %1 and GET %2 only."_s.arg(
                QLatin1StringView(completionsPath), QLatin1StringView(versionPath));
            break;
        default:
            message = u"tessary-server could not read the request (HTTP %1)."_s.arg(response.status);
        }
        replyError(response, response.status, u"invalid_request_error"_s, message);
        return httplib::Server::HandlerResponse::Handled;
    }));
}

RewriteServer::~RewriteServer()
{
    stop();
}

bool RewriteServer::bind()
{
    int listenSocket = -1;
    // Not the library's default SO_REUSEPORT: with it a second server binds the same port
    // and the kernel shares connections between the two, so clients meet another token.
    // SO_REUSEADDR alone still lets a restarted server take over from connections in TIME_WAIT.
    m_server->set_socket_options([&listenSocket](socket_t socket) {
        const int yes = 1;
        ::setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof(yes));
        listenSocket = socket;
    });
    const std::string host = m_config.listenAddress.toStdString();
    if (m_config.port == 0)
        m_port = m_server->bind_to_any_port(host);
    else
        m_port = m_server->bind_to_port(host, m_config.port) ? m_config.port : -1;
    if (m_port <= 0) {
        m_error = u"cannot listen on %1:%2 (in use, or not an address of this machine)"_s
                      .arg(m_config.listenAddress)
                      .arg(m_config.port);
        return false;
    }
    // The library listens with a backlog of 5: a burst of clients connecting at once
    // would see connections fail. Listening again only raises the backlog.
    ::listen(listenSocket, SOMAXCONN);
    return true;
}

void RewriteServer::run()
{
    m_server->listen_after_bind();
}

bool RewriteServer::start()
{
    if (m_port <= 0 && !bind())
        return false;
    m_thread = std::thread([this] { run(); });
    return true;
}

void RewriteServer::stop()
{
    m_server->stop();
    // Connections kept alive between requests would hold their threads, and so the
    // shutdown, until their keep-alive time runs out.
    if (m_port > 0) {
        for (const int socket : ClientWatch::connectedSockets(m_port))
            ::shutdown(socket, SHUT_RDWR);
    }
    if (m_thread.joinable())
        m_thread.join();
}

bool RewriteServer::authorized(const httplib::Request &request) const
{
    const std::string header = request.get_header_value("Authorization");
    const std::string prefix = "Bearer ";
    if (header.compare(0, prefix.size(), prefix) != 0)
        return false;
    return sameSecret(header.substr(prefix.size()), m_config.clientToken.toStdString());
}

void RewriteServer::handleVersion(const httplib::Request &, httplib::Response &response)
{
    const QJsonObject data {
        { "current_version"_L1, m_config.releaseVersion },
        { "download_url"_L1, m_config.releaseDownloadUrl },
        { "release_notes"_L1, m_config.releaseNotes },
        { "force_update"_L1, m_config.releaseForceUpdate },
        { "minimum_supported_version"_L1, m_config.releaseMinimumVersion },
    };
    const QJsonObject reply { { "success"_L1, true }, { "data"_L1, data }, { "error"_L1, QJsonValue::Null } };
    response.set_content(
        QJsonDocument(reply).toJson(QJsonDocument::Compact).toStdString(), "application/json");
}

void RewriteServer::handleRewrite(const httplib::Request &request, httplib::Response &response)
{
    const quint64 id = m_nextRequestId++;
    if (!authorized(request)) {
        serverLog(u"#%1 refused: missing or wrong client token"_s.arg(id));
        response.set_header("WWW-Authenticate", "Bearer");
        replyError(response, 401, u"invalid_request_error"_s,
            u"Invalid API key: enter the client token of tessary-server (printed at its first start, kept in "
            "~/.config/tessary-server/client-token) in Tessary's Settings."_s);
        return;
    }
    const RequestParse parse = parseRewriteRequest(QByteArray::fromStdString(request.body));
    if (!parse.request) {
        serverLog(u"#%1 refused: %2"_s.arg(id).arg(parse.error));
        replyError(response, 400, u"invalid_request_error"_s, parse.error);
        return;
    }
    if (++m_activeStreams > m_config.maxStreams) {
        --m_activeStreams;
        serverLog(u"#%1 refused: %2 rewrites already running"_s.arg(id).arg(m_config.maxStreams));
        replyError(response, 503, u"server_busy"_s,
            u"tessary-server is busy with %1 rewrites. Try again in a moment."_s.arg(m_config.maxStreams));
        return;
    }

    const RewriteRequest rewrite = *parse.request;
    if (m_config.verbose) {
        serverLog(u"#%1 rewrite, tone \"%2\", text: %3"_s.arg(id).arg(rewrite.tone, rewrite.text));
        for (const QString &sample : rewrite.examples)
            serverLog(u"#%1 sample: %2"_s.arg(id).arg(sample));
    } else {
        serverLog(u"#%1 rewrite: %2 characters, %3 samples, tone \"%4\""_s.arg(id)
                      .arg(rewrite.text.size())
                      .arg(rewrite.examples.size())
                      .arg(rewrite.tone));
    }

    const int clientSocket = m_watch->socketOf(request.local_port, request.remote_port);
    response.set_header("Cache-Control", "no-cache");
    response.set_header("X-Accel-Buffering", "no"); // reverse proxies must not hold fragments back
    response.set_chunked_content_provider(
        "text/event-stream",
        [this, id, rewrite, clientSocket](size_t, httplib::DataSink &sink) {
            QElapsedTimer timer;
            timer.start();
            auto call = std::make_shared<UpstreamCall>(UpstreamCall::Settings {
                m_config.upstreamUrl, m_config.upstreamKey, m_config.upstreamTimeoutSeconds });
            const int watchId
                = clientSocket >= 0 ? m_watch->add(clientSocket, [call] { call->cancel(); }) : 0;
            const auto write = [&sink](const QByteArray &bytes) {
                return sink.write(bytes.constData(), size_t(bytes.size()));
            };

            const QByteArray upstreamBody = chatCompletionBody(
                promptMessages(rewrite.examples, rewrite.tone, rewrite.text, m_config.sampleBudget),
                m_config.model);
            const UpstreamOutcome outcome = call->run(upstreamBody,
                [&](const QString &fragment) { return write(fragmentEvent(fragment)); });
            if (watchId)
                m_watch->remove(watchId);

            switch (outcome.result) {
            case UpstreamOutcome::Result::Finished:
                write(QByteArray(doneEvent.data(), doneEvent.size()));
                serverLog(
                    u"#%1 done: %2 fragments in %3 ms"_s.arg(id).arg(outcome.fragments).arg(timer.elapsed()));
                break;
            case UpstreamOutcome::Result::Failed:
                write(errorEvent(u"upstream_error"_s, outcome.message));
                serverLog(u"#%1 failed after %2 ms: %3"_s.arg(id).arg(timer.elapsed()).arg(outcome.message));
                break;
            case UpstreamOutcome::Result::Cancelled:
                serverLog(u"#%1 client went away after %2 fragments; upstream request dropped"_s.arg(id).arg(
                    outcome.fragments));
                return false;
            }
            sink.done();
            return true;
        },
        [this](bool) { --m_activeStreams; });
}
