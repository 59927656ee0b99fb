// Hostile clients against tessary-server, on loopback only, each attack bounded in
// connections, bytes and time. For each, a fresh server runs with the stand-in model
// server behind it, and a well-behaved client beside the attack (from 127.0.0.2, as a
// different machine would be) asks for /api/v1/version every 20 ms; against slow heads
// from its own address, a client with the token asks for /api/v1/models. Printed per attack:
// the server's peak memory and the longest the well-behaved client waited.

#include "server/FixtureUpstream.h"

#include <QCoreApplication>
#include <QFile>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <algorithm>
#include <arpa/inet.h>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <functional>
#include <netinet/in.h>
#include <string>
#include <sys/socket.h>
#include <sys/time.h>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

constexpr double rssTargetMb = 64.0;
constexpr double waitTargetMs = 250.0;
constexpr auto attackTime = 4s;
const std::string token = "bench";

using Clock = std::chrono::steady_clock;

// A blocking socket connected to the server from `from`, or -1. Sends give up after a
// second, so an attacker never hangs on a server that stopped reading.
int connectFrom(int port, const char *from = "127.0.0.1")
{
    const int fd = ::socket(AF_INET, SOCK_STREAM, 0);
    timeval timeout { 1, 0 };
    setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof timeout);
    setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof timeout);
    sockaddr_in local {};
    local.sin_family = AF_INET;
    inet_pton(AF_INET, from, &local.sin_addr);
    ::bind(fd, reinterpret_cast<const sockaddr *>(&local), sizeof local);
    sockaddr_in server {};
    server.sin_family = AF_INET;
    server.sin_port = htons(uint16_t(port));
    inet_pton(AF_INET, "127.0.0.1", &server.sin_addr);
    if (::connect(fd, reinterpret_cast<const sockaddr *>(&server), sizeof server) != 0) {
        ::close(fd);
        return -1;
    }
    return fd;
}

bool sendAll(int fd, const std::string &bytes)
{
    size_t sent = 0;
    while (sent < bytes.size()) {
        const ssize_t n = ::send(fd, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
        if (n <= 0)
            return false;
        sent += size_t(n);
    }
    return true;
}

// One client of many that sends `head`, then `piece` over and over until `total` bytes,
// the end of the attack, or the server closing.
void flood(int port, const std::string &head, const std::string &piece, size_t total, Clock::time_point end)
{
    const int fd = connectFrom(port);
    if (fd < 0)
        return;
    size_t sent = 0;
    if (sendAll(fd, head)) {
        while (sent < total && Clock::now() < end && sendAll(fd, piece))
            sent += piece.size();
    }
    ::close(fd);
}

void floodMany(int port, int clients, const std::string &head, const std::string &piece, size_t total)
{
    const auto end = Clock::now() + attackTime;
    std::vector<std::thread> threads;
    for (int i = 0; i < clients; ++i)
        threads.emplace_back(flood, port, head, piece, total, end);
    for (std::thread &thread : threads)
        thread.join();
}

// Many connections held open for the length of the attack, each sending `perSecond`
// (nothing when empty) once a second.
void hold(int port, int clients, const std::string &perSecond)
{
    std::vector<int> sockets;
    for (int i = 0; i < clients; ++i) {
        const int fd = connectFrom(port);
        if (fd >= 0)
            sockets.push_back(fd);
    }
    const auto end = Clock::now() + attackTime;
    while (Clock::now() < end) {
        for (const int fd : sockets) {
            if (!perSecond.empty())
                ::send(fd, perSecond.data(), perSecond.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        }
        std::this_thread::sleep_for(1s);
    }
    for (const int fd : sockets)
        ::close(fd);
}

// Rewrite requests the stand-in answers with what the attack scripted; each reads the
// reply until the server ends it.
void rewrites(int port, int clients)
{
    const std::string body
        = R"({"stream":true,"tone":"natural","examples":[],"messages":[{"role":"user","content":"hi"}]})";
    const std::string request
        = "POST /api/v1/chat/completions HTTP/1.1\r\nHost: 127.0.0.1\r\nAuthorization: Bearer " + token
        + "\r\nContent-Type: application/json\r\nConnection: close\r\nContent-Length: "
        + std::to_string(body.size()) + "\r\n\r\n" + body;
    std::vector<std::thread> threads;
    for (int i = 0; i < clients; ++i) {
        threads.emplace_back([port, request] {
            const int fd = connectFrom(port);
            if (fd < 0)
                return;
            const auto end = Clock::now() + attackTime;
            char buffer[16384];
            if (sendAll(fd, request)) {
                while (Clock::now() < end && ::recv(fd, buffer, sizeof buffer, 0) > 0) { }
            }
            ::close(fd);
        });
    }
    for (std::thread &thread : threads)
        thread.join();
}

struct Attack
{
    const char *name;
    const char *size; // what it sends, for the table
    std::function<void(int port)> run;
    UpstreamScript upstream; // what the stand-in model server answers meanwhile
    const char *clientFrom = "127.0.0.2"; // the well-behaved client's address
    bool clientHasToken = false; // it asks for the models with the token instead
};

// Slow heads from `from`, a byte every 200 ms each, reopened as soon as the server closes
// one: the connection caps stay full for the length of the attack.
void holdReopening(int port, const char *from, int clients)
{
    std::vector<int> sockets;
    for (int i = 0; i < clients; ++i)
        sockets.push_back(connectFrom(port, from));
    const auto end = Clock::now() + attackTime;
    const std::string start = "POST /api/v1/chat/completions HTTP/1.1\r\n";
    while (Clock::now() < end) {
        for (int &fd : sockets) {
            if (fd >= 0 && ::send(fd, "X", 1, MSG_NOSIGNAL | MSG_DONTWAIT) == 1)
                continue;
            if (fd >= 0)
                ::close(fd);
            fd = connectFrom(port, from);
            if (fd >= 0)
                ::send(fd, start.data(), start.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        }
        std::this_thread::sleep_for(200ms);
    }
    for (const int fd : sockets) {
        if (fd >= 0)
            ::close(fd);
    }
}

// The well-behaved client: one version request after another, from another address.
double longestWaitMs(int port, const std::atomic<bool> &stop, const char *from, bool withToken)
{
    const std::string request = withToken
        ? "GET /api/v1/models HTTP/1.1\r\nHost: 127.0.0.1\r\nAuthorization: Bearer " + token
            + "\r\nConnection: close\r\n\r\n"
        : "GET /api/v1/version HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\n\r\n";
    double longest = 0;
    char buffer[4096];
    while (!stop) {
        const auto began = Clock::now();
        const int fd = connectFrom(port, from);
        std::string reply;
        if (fd >= 0 && sendAll(fd, request)) {
            ssize_t n;
            while ((n = ::recv(fd, buffer, sizeof buffer, 0)) > 0)
                reply.append(buffer, size_t(n));
        }
        if (fd >= 0)
            ::close(fd);
        const double waited = std::chrono::duration<double, std::milli>(Clock::now() - began).count();
        // No answer at all counts as the longest possible wait.
        longest = std::max(longest, reply.starts_with("HTTP/1.1 200") ? waited : 1e9);
        std::this_thread::sleep_for(20ms);
    }
    return longest;
}

double statusMb(qint64 pid, const char *field)
{
    QFile status(u"/proc/%1/status"_s.arg(pid));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    const QRegularExpression pattern(QString::fromLatin1(field) + u":\\s+(\\d+) kB"_s);
    const auto match = pattern.match(QString::fromLatin1(status.readAll()));
    return match.hasMatch() ? match.captured(1).toDouble() / 1024 : -1;
}

// Starts tessary-server on a free port; returns the port, 0 when it did not come up.
int startServer(QProcess &server, const QTemporaryDir &home, const QString &upstreamUrl)
{
    server.setProgram(QString::fromLatin1(TESSARY_SERVER_PATH));
    server.setArguments({ u"--port=0"_s, u"--client-token=%1"_s.arg(QString::fromStdString(token)),
        u"--upstream-url="_s + upstreamUrl });
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"XDG_CONFIG_HOME"_s, home.path());
    server.setProcessEnvironment(environment);
    const QString logPath = home.filePath(u"server.log"_s);
    QFile::remove(logPath);
    server.setStandardErrorFile(logPath); // a pipe nobody reads would stall the server
    server.start();
    const QRegularExpression listening(u"listening on http://127\\.0\\.0\\.1:(\\d+)/"_s);
    QFile log(logPath);
    for (int attempt = 0; attempt < 100 && server.state() != QProcess::NotRunning; ++attempt) {
        std::this_thread::sleep_for(50ms);
        if (log.isOpen() || log.open(QIODevice::ReadOnly)) {
            log.seek(0);
            if (const auto match = listening.match(QString::fromUtf8(log.readAll())); match.hasMatch())
                return match.captured(1).toInt();
        }
    }
    return 0;
}

const char *verdict(bool met)
{
    return met ? "ok" : "MISSED";
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    FixtureUpstream upstream(64);
    if (!upstream.start()) {
        std::fprintf(stderr, "hostile_client: cannot start the stand-in model server\n");
        return 1;
    }

    const std::string post = "POST /api/v1/chat/completions HTTP/1.1\r\nHost: 127.0.0.1\r\n";
    const std::string bearer = "Authorization: Bearer " + token + "\r\n";
    constexpr size_t perClient = 64u << 20;
    UpstreamScript endlessLine;
    endlessLine.rawStream = "data: " + QByteArray(32 << 20, 'x');
    UpstreamScript heavyHead;
    heavyHead.fragments = { u"never"_s };
    heavyHead.extraHeaders = 100000;
    UpstreamScript quiet;
    quiet.fragments = { u"Hey"_s };

    const std::vector<Attack> attacks {
        { "8 KB header lines", "8 x 64 MB",
            [&](int port) {
                floodMany(port, 8, post, "X-Long: " + std::string(8192, 'h') + "\r\n", perClient);
            },
            quiet },
        { "tiny header lines", "8 x 64 MB",
            [&](int port) {
                std::string lines;
                for (int i = 0; i < 4096; ++i)
                    lines += "a:b\r\n";
                floodMany(port, 8, post, lines, perClient);
            },
            quiet },
        { "chunked body, no token", "8 x 64 MB",
            [&](int port) {
                const std::string chunk = "10000\r\n" + std::string(0x10000, 'b') + "\r\n";
                floodMany(port, 8, post + "Transfer-Encoding: chunked\r\n\r\n", chunk, perClient);
            },
            quiet },
        { "10 GB Content-Length", "8 x 64 MB",
            [&](int port) {
                floodMany(port, 8, post + bearer + "Content-Length: 10000000000\r\n\r\n",
                    std::string(0x10000, 'c'), perClient);
            },
            quiet },
        { "head at a byte a second", "1000 connections", [&](int port) { hold(port, 1000, "X"); }, quiet },
        { "idle connections", "2000 connections", [&](int port) { hold(port, 2000, {}); }, quiet },
        { "upstream line without end", "4 x 32 MB", [&](int port) { rewrites(port, 4); }, endlessLine },
        { "upstream reply head", "4 x 100,000 fields", [&](int port) { rewrites(port, 4); }, heavyHead },
        // The caps full of slow heads, one address being the token holder's own.
        { "slow heads, own address", "2 x 300 reopened",
            [&](int port) {
                std::thread other(holdReopening, port, "127.0.0.3", 300);
                holdReopening(port, "127.0.0.1", 300);
                other.join();
            },
            quiet, "127.0.0.1", true },
    };

    std::printf("tessary-server against hostile clients (loopback, %lld s each; targets: peak RSS < %.0f MB, "
                "well-behaved wait < %.0f ms)\n",
        qlonglong(std::chrono::seconds(attackTime).count()), rssTargetMb, waitTargetMs);
    std::printf("  %-26s %-20s %-22s %s\n", "attack", "sent", "server peak RSS", "longest well-behaved wait");
    bool allMet = true;
    for (const Attack &attack : attacks) {
        upstream.setScript(attack.upstream);
        QTemporaryDir home;
        QProcess server;
        const int port = startServer(server, home, upstream.baseUrl());
        if (port == 0) {
            std::fprintf(stderr, "hostile_client: tessary-server did not start\n");
            return 1;
        }
        std::atomic<bool> stop { false };
        double waited = 0;
        std::thread wellBehaved(
            [&] { waited = longestWaitMs(port, stop, attack.clientFrom, attack.clientHasToken); });
        attack.run(port);
        stop = true;
        wellBehaved.join();
        upstream.release();
        const double peak = statusMb(server.processId(), "VmHWM");
        server.terminate();
        server.waitForFinished(5000);

        const bool met = peak > 0 && peak < rssTargetMb && waited < waitTargetMs;
        allMet = allMet && met;
        const QByteArray shownWait = waited >= 1e9 ? "no answer" : QByteArray::number(waited, 'f', 1) + " ms";
        std::printf("  %-26s %-20s %6.1f MB %-13s %-10s %s\n", attack.name, attack.size, peak,
            verdict(peak > 0 && peak < rssTargetMb), shownWait.constData(), verdict(waited < waitTargetMs));
        std::fflush(stdout);
    }
    return allMet ? 0 : 1;
}
