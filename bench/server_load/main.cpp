// Load on tessary-server, loopback only and bounded: 200 rewrites streamed at once, each
// 50 fragments from the stand-in model server; then 1,000 at once through HAProxy to two
// instances, as a team would run them. Every fragment carries the time it was written
// upstream, so the client sees how long it took to arrive. The same load sent straight to
// the stand-in gives the baseline; the difference is what the server (and proxy) adds.

#include "server/FixtureUpstream.h"

#include <QCoreApplication>
#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QRegularExpression>
#include <QTemporaryDir>

#include <algorithm>
#include <arpa/inet.h>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <string>
#include <string_view>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

constexpr int streams = 200;
constexpr int fragmentsPerStream = 50;
constexpr auto fragmentInterval = 20ms;
// The first fragments of all streams meet the burst of 200 connections being set up at
// once; per-fragment latency is judged on the fragments after them.
constexpr int warmUpFragments = 5;
constexpr double p99TargetMs = 2.0;
constexpr double rssTargetMb = 60.0;
constexpr int proxiedStreams = 1000;
// A model server batching a thousand requests gives each far fewer tokens a second than
// one alone; 100 ms apart is 10,000 fragments a second in all, which the two cores this
// is built on can carry beside the load generator, the stand-in, the proxy and both
// instances. At 20 ms apart the machine itself saturates and the figure measures that.
constexpr auto proxiedFragmentInterval = 100ms;
constexpr double proxiedP99TargetMs = 5.0;

qint64 nowNs()
{
    return std::chrono::steady_clock::now().time_since_epoch().count();
}

struct Phase
{
    std::vector<qint64> latencies; // ns, one per fragment received
    std::vector<qint64> steady; // ns, the same without each stream's first warmUpFragments
    int errors = 0;
    double seconds = 0;
};

struct Connection
{
    int socket = -1;
    bool sent = false;
    std::string received; // from the start of the line not yet complete
    size_t lineStart = 0;
    bool readAny = false;
    bool answeredOk = false;
    bool sawDone = false;
    std::vector<qint64> latencies;
};

// Takes the complete lines out of what arrived; each event is one line "data: ...".
// Chunk-size lines of the transfer coding never start with "data: " and fall through.
void readLines(Connection &connection, qint64 arrived)
{
    size_t end;
    while ((end = connection.received.find('\n', connection.lineStart)) != std::string::npos) {
        const std::string_view line(
            connection.received.data() + connection.lineStart, end - connection.lineStart);
        connection.lineStart = end + 1;
        if (!line.starts_with("data: "))
            continue;
        if (line == "data: [DONE]") {
            connection.sawDone = true;
            continue;
        }
        const size_t stamp = line.find(R"("content":")");
        if (stamp != std::string_view::npos)
            connection.latencies.push_back(arrived - std::strtoll(line.data() + stamp + 11, nullptr, 10));
    }
}

// All clients on one thread with epoll, so the load generator itself needs few context
// switches and what is measured is mostly the servers'.
// The streams are opened evenly over `spread`, as requests of many people arrive, rather
// than all in the same millisecond, which keeps every fragment of every stream in step.
Phase runPhase(int port, const std::string &path, const std::string &token, int streams = ::streams,
    std::chrono::milliseconds spread = 0ms)
{
    const std::string body
        = QJsonDocument(QJsonObject {
                            { "stream"_L1, true },
                            { "tone"_L1, "natural"_L1 },
                            { "examples"_L1, QJsonArray { u"Cheers, Sam"_s } },
                            { "messages"_L1,
                                QJsonArray { QJsonObject { { "role"_L1, "user"_L1 },
                                    { "content"_L1, "Rewrite this in my voice:\n\nHello there"_L1 } } } },
                        })
              .toJson(QJsonDocument::Compact)
              .toStdString();
    const std::string request = "POST " + path + " HTTP/1.1\r\nHost: 127.0.0.1\r\nAuthorization: Bearer "
        + token + "\r\nContent-Type: application/json\r\nContent-Length: " + std::to_string(body.size())
        + "\r\nConnection: close\r\n\r\n" + body;

    Phase phase;
    const int epoll = epoll_create1(0);
    std::vector<Connection> connections(streams);
    sockaddr_in address {};
    address.sin_family = AF_INET;
    address.sin_port = htons(uint16_t(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    const auto began = std::chrono::steady_clock::now();
    int opened = 0;
    const auto openDue = [&] {
        for (; opened < streams && began + spread * opened / streams <= std::chrono::steady_clock::now();
             ++opened) {
            Connection &connection = connections[size_t(opened)];
            connection.socket = socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0);
            const int on = 1;
            setsockopt(connection.socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
            connect(connection.socket, reinterpret_cast<const sockaddr *>(&address), sizeof address);
            epoll_event event {};
            event.events = EPOLLIN | EPOLLOUT | EPOLLRDHUP;
            event.data.u32 = uint32_t(opened);
            epoll_ctl(epoll, EPOLL_CTL_ADD, connection.socket, &event);
        }
    };

    int open = streams;
    const auto deadline = began + 60s;
    epoll_event events[1024];
    char buffer[16384];
    while (open > 0 && std::chrono::steady_clock::now() < deadline) {
        openDue();
        const int count = epoll_wait(epoll, events, 1024, opened < streams ? 1 : 100);
        for (int e = 0; e < count; ++e) {
            Connection &connection = connections[events[e].data.u32];
            if (connection.socket < 0)
                continue;
            if (!connection.sent && (events[e].events & EPOLLOUT)) {
                connection.sent = send(connection.socket, request.data(), request.size(), MSG_NOSIGNAL)
                    == ssize_t(request.size());
                epoll_event event {};
                event.events = EPOLLIN | EPOLLRDHUP;
                event.data.u32 = events[e].data.u32;
                epoll_ctl(epoll, EPOLL_CTL_MOD, connection.socket, &event);
            }
            bool closed = (events[e].events & (EPOLLHUP | EPOLLERR)) != 0;
            for (;;) {
                const ssize_t n = recv(connection.socket, buffer, sizeof buffer, 0);
                if (n > 0) {
                    const qint64 arrived = nowNs();
                    if (!connection.readAny)
                        connection.answeredOk
                            = std::string_view(buffer, size_t(n)).starts_with("HTTP/1.1 200");
                    connection.readAny = true;
                    connection.received.append(buffer, size_t(n));
                    readLines(connection, arrived);
                    // What was read is dropped, so the buffer stays small and allocation
                    // in this thread does not contend with the stand-in's threads.
                    connection.received.erase(0, connection.lineStart);
                    connection.lineStart = 0;
                    continue;
                }
                if (n == 0 || (errno != EAGAIN && errno != EWOULDBLOCK))
                    closed = true;
                break;
            }
            if (closed) {
                close(connection.socket);
                connection.socket = -1;
                --open;
            }
        }
    }
    phase.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - began).count();
    for (Connection &connection : connections) {
        if (connection.socket >= 0)
            close(connection.socket);
        const bool ok = connection.answeredOk && connection.sawDone
            && int(connection.latencies.size()) == fragmentsPerStream;
        phase.errors += ok ? 0 : 1;
        if (connection.latencies.size() > size_t(warmUpFragments))
            phase.steady.insert(phase.steady.end(), connection.latencies.begin() + warmUpFragments,
                connection.latencies.end());
        phase.latencies.insert(
            phase.latencies.end(), connection.latencies.begin(), connection.latencies.end());
    }
    close(epoll);
    std::sort(phase.latencies.begin(), phase.latencies.end());
    std::sort(phase.steady.begin(), phase.steady.end());
    return phase;
}

double percentileMs(const std::vector<qint64> &sorted, double p)
{
    if (sorted.empty())
        return 0;
    const size_t index = std::min(sorted.size() - 1, size_t(p * double(sorted.size())));
    return double(sorted[index]) / 1e6;
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

// User plus system CPU time of a process so far, in seconds.
double cpuSeconds(qint64 pid)
{
    QFile stat(u"/proc/%1/stat"_s.arg(pid));
    if (!stat.open(QIODevice::ReadOnly))
        return -1;
    const QByteArray line = stat.readAll();
    // The fields after the command name, which may hold spaces, start after its ')'.
    const QList<QByteArray> fields = line.mid(line.lastIndexOf(')') + 2).split(' ');
    if (fields.size() < 13)
        return -1;
    return (fields[11].toDouble() + fields[12].toDouble()) / double(sysconf(_SC_CLK_TCK));
}

// Starts a tessary-server relaying to `upstreamUrl`: its port, or 0 when it did not come up.
int startServer(QProcess &server, const QTemporaryDir &home, const QString &upstreamUrl, const QString &name,
    int maxStreams)
{
    server.setProgram(QString::fromLatin1(TESSARY_SERVER_PATH));
    server.setArguments({ u"--port=0"_s, u"--client-token=bench"_s, u"--upstream-url="_s + upstreamUrl,
        u"--max-streams=%1"_s.arg(maxStreams), u"--max-connections=%1"_s.arg(2 * maxStreams),
        u"--max-connections-per-address=%1"_s.arg(2 * maxStreams) });
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"XDG_CONFIG_HOME"_s, home.path());
    server.setProcessEnvironment(environment);
    // The log goes to a file: a pipe nobody reads during the run would fill and stall the server.
    const QString logPath = home.filePath(name + u".log"_s);
    server.setStandardErrorFile(logPath);
    server.start();
    int port = 0;
    const QRegularExpression listening(u"listening on http://127\\.0\\.0\\.1:(\\d+)/"_s);
    QFile log(logPath);
    for (int attempt = 0; port == 0 && attempt < 100 && server.state() != QProcess::NotRunning; ++attempt) {
        std::this_thread::sleep_for(50ms);
        if (log.isOpen() || log.open(QIODevice::ReadOnly)) {
            log.seek(0);
            if (const auto match = listening.match(QString::fromUtf8(log.readAll())); match.hasMatch())
                port = match.captured(1).toInt();
        }
    }
    if (port == 0) {
        log.seek(0);
        std::fprintf(stderr, "server_load: tessary-server did not start\n%s\n", log.readAll().constData());
    }
    return port;
}

int freePort()
{
    const int probe = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    bind(probe, reinterpret_cast<sockaddr *>(&address), sizeof address);
    getsockname(probe, reinterpret_cast<sockaddr *>(&address), &length);
    close(probe);
    return ntohs(address.sin_port);
}

// The status HAProxy answers for /readyz: 200 once it has a healthy instance behind it.
bool proxyReady(int port)
{
    const int client = socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address {};
    address.sin_family = AF_INET;
    address.sin_port = htons(uint16_t(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    bool ready = false;
    if (connect(client, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0) {
        constexpr std::string_view ask
            = "GET /readyz HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\n\r\n";
        char reply[64] = {};
        if (send(client, ask.data(), ask.size(), MSG_NOSIGNAL) == ssize_t(ask.size())
            && recv(client, reply, sizeof reply - 1, MSG_WAITALL) > 12)
            ready = std::string_view(reply).starts_with("HTTP/1.1 200");
    }
    close(client);
    return ready;
}

const char *verdict(bool met)
{
    return met ? "ok" : "MISSED";
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);

    FixtureUpstream upstream(proxiedStreams + 16);
    if (!upstream.start()) {
        std::fprintf(stderr, "server_load: cannot start the stand-in model server\n");
        return 1;
    }
    UpstreamScript script;
    script.stampFragments = true;
    script.fragmentCount = fragmentsPerStream;
    script.interval = fragmentInterval;
    upstream.setScript(script);

    QTemporaryDir home;
    QProcess server;
    const int port = startServer(server, home, upstream.baseUrl(), u"server"_s, streams + 8);
    if (port == 0)
        return 1;
    const double idleRss = statusMb(server.processId(), "VmRSS");

    const Phase direct = runPhase(upstream.port(), "/v1/chat/completions", "unused");
    const double cpuBefore = cpuSeconds(server.processId());
    const Phase through = runPhase(port, "/api/v1/chat/completions", "bench");
    const double serverCpu = cpuSeconds(server.processId()) - cpuBefore;
    const double peakRss = statusMb(server.processId(), "VmHWM");
    server.terminate();
    server.waitForFinished(5000);

    const auto added = [](const std::vector<qint64> &through, const std::vector<qint64> &direct, double p) {
        return percentileMs(through, p) - percentileMs(direct, p);
    };
    const auto latencyLine
        = [](const char *label, const Phase &phase, const std::vector<qint64> Phase::*set) {
              std::printf("  %-22s p50 %.3f ms, p99 %.3f ms\n", label, percentileMs(phase.*set, 0.50),
                  percentileMs(phase.*set, 0.99));
          };
    const double addedP99 = added(through.steady, direct.steady, 0.99);
    // What passes through the server can gain no more than its whole delay: under the
    // target that is a pass even when a noisy direct run makes the difference negative.
    const auto judge = [](double added, const std::vector<qint64> &through, double target) {
        if (percentileMs(through, 0.99) < target || (added >= 0 && added < target))
            return "ok";
        return added < 0 ? "INCONCLUSIVE, the direct run was slower: the machine is busy, run again"
                         : "MISSED";
    };
    const char *serverVerdict = judge(addedP99, through.steady, p99TargetMs);
    std::printf("tessary-server under load: %d concurrent streams x %d fragments, %lld ms apart upstream\n",
        streams, fragmentsPerStream, qlonglong(std::chrono::milliseconds(fragmentInterval).count()));
    std::printf("  throughput             %.0f fragments/s, %.1f rewrites/s (%.2f s)\n",
        double(through.latencies.size()) / through.seconds, streams / through.seconds, through.seconds);
    std::printf("  fragment latency, upstream write to client read:\n");
    latencyLine("direct, all", direct, &Phase::latencies);
    latencyLine("through server, all", through, &Phase::latencies);
    latencyLine("direct, steady", direct, &Phase::steady);
    latencyLine("through server, steady", through, &Phase::steady);
    std::printf("  added by the server    all fragments: p50 %.3f ms, p99 %.3f ms\n",
        added(through.latencies, direct.latencies, 0.50), added(through.latencies, direct.latencies, 0.99));
    std::printf("  added by the server    steady (after %d fragments): p50 %.3f ms, p99 %.3f ms   "
                "(target p99 < %.1f ms: %s)\n",
        warmUpFragments, added(through.steady, direct.steady, 0.50), addedP99, p99TargetMs, serverVerdict);
    std::printf("  errors                 %d direct, %d through server   (target 0: %s)\n", direct.errors,
        through.errors, verdict(through.errors == 0));
    std::printf("  server CPU             %.2f s in all, %.1f us per fragment\n", serverCpu,
        serverCpu * 1e6 / double(std::max<size_t>(1, through.latencies.size())));
    std::printf("  server RSS             %.1f MB idle, %.1f MB peak   (target < %.0f MB: %s)\n", idleRss,
        peakRss, rssTargetMb, verdict(peakRss < rssTargetMb));
    bool met = serverVerdict == std::string_view("ok") && through.errors == 0 && direct.errors == 0
        && peakRss < rssTargetMb;

    // Two instances behind HAProxy, 1,000 streams at once.
    QProcess one;
    QProcess two;
    const int portOne = startServer(one, home, upstream.baseUrl(), u"one"_s, proxiedStreams);
    const int portTwo = startServer(two, home, upstream.baseUrl(), u"two"_s, proxiedStreams);
    const int front = freePort();
    QFile config(home.filePath(u"haproxy.cfg"_s));
    if (portOne == 0 || portTwo == 0 || !config.open(QIODevice::WriteOnly))
        return 1;
    // http-no-delay as in packaging/team/haproxy.cfg.
    config.write(QStringLiteral("global\n    maxconn 8192\ndefaults\n    mode http\n    maxconn 8192\n"
                                "    timeout connect 5s\n    timeout client 120s\n    timeout server 120s\n"
                                "    option http-no-delay\n"
                                "frontend bench\n    bind 127.0.0.1:%1\n    default_backend servers\n"
                                "backend servers\n    balance leastconn\n    option httpchk GET /readyz\n"
                                "    default-server inter 500ms rise 1 fall 2\n"
                                "    server one 127.0.0.1:%2 check\n    server two 127.0.0.1:%3 check\n")
                     .arg(front)
                     .arg(portOne)
                     .arg(portTwo)
                     .toUtf8());
    config.close();
    QProcess proxy;
    proxy.setStandardErrorFile(home.filePath(u"haproxy.log"_s));
    proxy.start(u"haproxy"_s, { u"-db"_s, u"-f"_s, config.fileName() });
    for (int attempt = 0; attempt < 100 && !proxyReady(front); ++attempt)
        std::this_thread::sleep_for(100ms);
    script.interval = proxiedFragmentInterval;
    upstream.setScript(script);
    const Phase directMany = runPhase(
        upstream.port(), "/v1/chat/completions", "unused", proxiedStreams, proxiedFragmentInterval);
    const Phase proxied
        = runPhase(front, "/api/v1/chat/completions", "bench", proxiedStreams, proxiedFragmentInterval);
    const double rssOne = statusMb(one.processId(), "VmHWM");
    const double rssTwo = statusMb(two.processId(), "VmHWM");
    for (QProcess *process : { &proxy, &one, &two }) {
        process->terminate();
        process->waitForFinished(10000);
    }
    const double proxiedP99 = added(proxied.steady, directMany.steady, 0.99);
    const char *proxiedVerdict = judge(proxiedP99, proxied.steady, proxiedP99TargetMs);
    std::printf(
        "two instances behind HAProxy: %d concurrent streams x %d fragments, %lld ms apart upstream\n",
        proxiedStreams, fragmentsPerStream,
        qlonglong(std::chrono::milliseconds(proxiedFragmentInterval).count()));
    latencyLine("direct, steady", directMany, &Phase::steady);
    latencyLine("through proxy, steady", proxied, &Phase::steady);
    std::printf("  added by proxy+server  steady: p50 %.3f ms, p99 %.3f ms   (target p99 < %.1f ms: %s)\n",
        added(proxied.steady, directMany.steady, 0.50), proxiedP99, proxiedP99TargetMs, proxiedVerdict);
    std::printf("  errors                 %d direct, %d through proxy   (target 0: %s)\n", directMany.errors,
        proxied.errors, verdict(proxied.errors == 0));
    std::printf("  instance RSS peak      %.1f MB and %.1f MB   (target < %.0f MB each: %s)\n", rssOne,
        rssTwo, rssTargetMb, verdict(rssOne < rssTargetMb && rssTwo < rssTargetMb));
    met = met && proxiedVerdict == std::string_view("ok") && proxied.errors == 0 && rssOne < rssTargetMb
        && rssTwo < rssTargetMb;
    return met ? 0 : 1;
}
