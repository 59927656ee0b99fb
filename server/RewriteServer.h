#pragma once

#include "ServerConfig.h"

#include <QString>

#include <atomic>
#include <memory>
#include <thread>

namespace httplib {
class Server;
struct Request;
struct Response;
} // namespace httplib
class ClientWatch;

// tessary-server's HTTP side: POST /api/v1/chat/completions streams a rewrite from the
// upstream model, GET /api/v1/version answers with the release record.
class RewriteServer
{
public:
    // config.clientToken must be set: every rewrite request has to present it.
    explicit RewriteServer(ServerConfig config);
    ~RewriteServer();

    // Binds to the configured address; port 0 picks a free one. On failure error() says why.
    bool bind();
    int port() const { return m_port; }
    QString error() const { return m_error; }

    // Serves until stop(); run() blocks, start() serves on a thread of its own.
    void run();
    bool start();
    void stop();

    int activeStreams() const { return m_activeStreams; }

private:
    void handleRewrite(const httplib::Request &request, httplib::Response &response);
    void handleVersion(const httplib::Request &request, httplib::Response &response);
    bool authorized(const httplib::Request &request) const;

    ServerConfig m_config;
    std::unique_ptr<httplib::Server> m_server;
    std::unique_ptr<ClientWatch> m_watch;
    std::thread m_thread;
    std::atomic<int> m_activeStreams { 0 };
    std::atomic<quint64> m_nextRequestId { 1 };
    int m_port = -1;
    QString m_error;
};
