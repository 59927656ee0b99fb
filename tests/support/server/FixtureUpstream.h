#pragma once

// A stand-in for an OpenAI-compatible model server, speaking real HTTP on 127.0.0.1:
// it records each /v1/chat/completions request and streams back a scripted reply.
// Its handlers run on threads of their own, so the test's event loop stays free.

#include <QByteArray>
#include <QJsonObject>
#include <QList>
#include <QString>
#include <QStringList>

#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <thread>

namespace httplib {
class Server;
}

struct UpstreamScript
{
    int status = 200;
    // Sent whole, as application/json, instead of an event stream when not empty.
    QByteArray wholeBody {};
    QStringList fragments {};
    // Each fragment's text is replaced by the steady-clock time (ns) of its writing.
    bool stampFragments = false;
    int fragmentCount = 0; // with stampFragments: how many
    std::chrono::microseconds interval { 0 }; // between fragments
    // After this many fragments the reply waits for release() (or the client's hang-up).
    int stallAfter = -1;
    QByteArray errorEvent {}; // a payload sent after the fragments, e.g. {"error":{...}}
    bool sendDone = true;
    // Sent as they are, in pieces of 64 KiB, instead of fragments when not empty.
    QByteArray rawStream {};
    int extraHeaders = 0; // sent with the reply, "X-Filler-<n>: ..." each
    int pieceSize = 64 * 1024; // of rawStream's writes (1: a byte at a time)
};

struct UpstreamRequest
{
    QString authorization;
    QString target; // path and query
    QJsonObject body;
};

class FixtureUpstream
{
public:
    explicit FixtureUpstream(int threads = 16);
    ~FixtureUpstream();

    bool start();
    int port() const { return m_port; }
    QString baseUrl() const; // http://127.0.0.1:<port>/v1

    void setScript(const UpstreamScript &script);
    void release(); // lets stalled replies go on

    QList<UpstreamRequest> requests() const;
    int finishedReplies() const { return m_finished; }
    // Replies that found their reader gone before they were complete.
    int abandonedReplies() const { return m_abandoned; }

private:
    std::unique_ptr<httplib::Server> m_server;
    std::thread m_thread;
    int m_port = -1;
    mutable std::mutex m_mutex;
    UpstreamScript m_script;
    QList<UpstreamRequest> m_requests;
    std::atomic<bool> m_released { false };
    std::atomic<int> m_finished { 0 };
    std::atomic<int> m_abandoned { 0 };
};
