#pragma once

#include "ServerConfig.h"

#include <QString>

#include <chrono>
#include <memory>

// tessary-server's HTTP side: POST /api/v1/chat/completions streams a rewrite from the
// upstream model, GET /api/v1/version answers with the release record.
// One event loop serves every connection, so a connection costs memory, never a thread;
// what a client may make it hold is bounded by the limits in ServerConfig.
class RewriteServer
{
public:
    // Every rewrite request has to present config.clientToken, unless config.noClientToken.
    explicit RewriteServer(ServerConfig config);
    ~RewriteServer();

    RewriteServer(const RewriteServer &) = delete;
    RewriteServer &operator=(const RewriteServer &) = delete;

    // Binds to the configured address; port 0 picks a free one. On failure error() says why.
    bool bind();
    // Listens on a socket opened for us (by systemd's socket activation) instead.
    bool adopt(int descriptor);
    int port() const;
    QString error() const;

    // Serves until stop(); start() serves on a thread of its own.
    bool start();
    // Stops accepting, lets running streams go on for `drain`, ends the rest with an error
    // event, and returns when every connection has closed.
    void stop(std::chrono::milliseconds drain = std::chrono::milliseconds(0));

    int activeStreams() const;

    class Session;
    struct Shared;

private:
    void run();
    bool loadTls();
    std::unique_ptr<Shared> d;
};
