// Load on tessary-server, loopback only and bounded: 200 rewrites streamed at once, each
// 50 fragments from the stand-in model server. Every fragment carries the time it was
// written upstream, so the client sees how long it took to arrive. The same load sent
// straight to the stand-in gives the baseline; the difference is what the server adds.

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
#include <atomic>
#include <barrier>
#include <chrono>
#include <cstdio>
#include <httplib.h>
#include <mutex>
#include <thread>
#include <unistd.h>
#include <vector>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

constexpr int streams = 200;
constexpr int fragmentsPerStream = 50;
constexpr auto fragmentInterval = 20ms;
constexpr double p99TargetMs = 2.0;
constexpr double rssTargetMb = 60.0;

qint64 nowNs()
{
    return std::chrono::steady_clock::now().time_since_epoch().count();
}

struct Phase
{
    std::vector<qint64> latencies; // ns, one per fragment received
    std::vector<qint64> firstLatencies; // ns, each stream's first fragment only
    int errors = 0;
    double seconds = 0;
};

// Runs `streams` clients at once against host:port, each posting one rewrite.
Phase runPhase(int port, const std::string &path, const std::string &token)
{
    Phase phase;
    std::mutex mutex;
    std::atomic<int> errors { 0 };
    std::barrier start(streams + 1);
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

    std::vector<std::thread> clients;
    for (int i = 0; i < streams; ++i) {
        clients.emplace_back([&] {
            std::vector<qint64> mine;
            mine.reserve(fragmentsPerStream);
            httplib::Client client("127.0.0.1", port);
            client.set_tcp_nodelay(true);
            client.set_read_timeout(20);
            std::string line;
            bool sawDone = false;
            httplib::Request request;
            request.method = "POST";
            request.path = path;
            request.headers
                = { { "Authorization", "Bearer " + token }, { "Content-Type", "application/json" } };
            request.body = body;
            request.content_receiver = [&](const char *data, size_t length, uint64_t, uint64_t) {
                const qint64 arrived = nowNs();
                for (size_t k = 0; k < length; ++k) {
                    if (data[k] != '\n') {
                        line.push_back(data[k]);
                        continue;
                    }
                    if (line.rfind("data: ", 0) == 0) {
                        if (line == "data: [DONE]") {
                            sawDone = true;
                        } else {
                            const QJsonObject event
                                = QJsonDocument::fromJson(QByteArray::fromStdString(line.substr(6))).object();
                            const QString stamp
                                = event.value("choices"_L1)[0]["delta"_L1]["content"_L1].toString();
                            if (!stamp.isEmpty())
                                mine.push_back(arrived - stamp.toLongLong());
                        }
                    }
                    line.clear();
                }
                return true;
            };
            start.arrive_and_wait();
            httplib::Response response;
            httplib::Error error;
            if (!client.send(request, response, error) || response.status != 200 || !sawDone
                || int(mine.size()) != fragmentsPerStream)
                ++errors;
            std::lock_guard lock(mutex);
            if (!mine.empty())
                phase.firstLatencies.push_back(mine.front());
            phase.latencies.insert(phase.latencies.end(), mine.begin(), mine.end());
        });
    }
    const auto began = std::chrono::steady_clock::now();
    start.arrive_and_wait();
    for (std::thread &client : clients)
        client.join();
    phase.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - began).count();
    phase.errors = errors;
    std::sort(phase.latencies.begin(), phase.latencies.end());
    std::sort(phase.firstLatencies.begin(), phase.firstLatencies.end());
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

const char *verdict(bool met)
{
    return met ? "ok" : "MISSED";
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);

    FixtureUpstream upstream(streams + 16);
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
    server.setProgram(QString::fromLatin1(TESSARY_SERVER_PATH));
    server.setArguments({ u"--port=0"_s, u"--client-token=bench"_s, u"--upstream-url="_s + upstream.baseUrl(),
        u"--max-streams=%1"_s.arg(streams + 8) });
    QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
    environment.insert(u"XDG_CONFIG_HOME"_s, home.path());
    server.setProcessEnvironment(environment);
    // The log goes to a file: a pipe nobody reads during the run would fill and stall the server.
    const QString logPath = home.filePath(u"server.log"_s);
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
        return 1;
    }
    const double idleRss = statusMb(server.processId(), "VmRSS");

    const Phase direct = runPhase(upstream.port(), "/v1/chat/completions", "unused");
    const double cpuBefore = cpuSeconds(server.processId());
    const Phase through = runPhase(port, "/api/v1/chat/completions", "bench");
    const double serverCpu = cpuSeconds(server.processId()) - cpuBefore;
    const double peakRss = statusMb(server.processId(), "VmHWM");
    server.terminate();
    server.waitForFinished(5000);

    const double addedP50 = percentileMs(through.latencies, 0.50) - percentileMs(direct.latencies, 0.50);
    const double addedP99 = percentileMs(through.latencies, 0.99) - percentileMs(direct.latencies, 0.99);
    const double fragmentsPerSecond = double(through.latencies.size()) / through.seconds;
    std::printf("tessary-server under load: %d concurrent streams x %d fragments, %lld ms apart upstream\n",
        streams, fragmentsPerStream, qlonglong(std::chrono::milliseconds(fragmentInterval).count()));
    std::printf("  throughput            %.0f fragments/s, %.1f rewrites/s (%.2f s)\n", fragmentsPerSecond,
        streams / through.seconds, through.seconds);
    std::printf(
        "  fragment latency      direct p50 %.3f ms p99 %.3f ms; through server p50 %.3f ms p99 %.3f ms\n",
        percentileMs(direct.latencies, 0.50), percentileMs(direct.latencies, 0.99),
        percentileMs(through.latencies, 0.50), percentileMs(through.latencies, 0.99));
    std::printf(
        "  first fragments only  direct p50 %.3f ms p99 %.3f ms; through server p50 %.3f ms p99 %.3f ms\n",
        percentileMs(direct.firstLatencies, 0.50), percentileMs(direct.firstLatencies, 0.99),
        percentileMs(through.firstLatencies, 0.50), percentileMs(through.firstLatencies, 0.99));
    std::printf("  added by the server   p50 %.3f ms, p99 %.3f ms   (target p99 < %.1f ms: %s)\n", addedP50,
        addedP99, p99TargetMs, verdict(addedP99 < p99TargetMs));
    std::printf("  errors                %d direct, %d through server   (target 0: %s)\n", direct.errors,
        through.errors, verdict(through.errors == 0));
    std::printf("  server CPU            %.2f s in all, %.1f us per fragment\n", serverCpu,
        serverCpu * 1e6 / double(std::max<size_t>(1, through.latencies.size())));
    std::printf("  server RSS            %.1f MB idle, %.1f MB peak   (target < %.0f MB: %s)\n", idleRss,
        peakRss, rssTargetMb, verdict(peakRss < rssTargetMb));
    const bool met
        = addedP99 < p99TargetMs && through.errors == 0 && direct.errors == 0 && peakRss < rssTargetMb;
    return met ? 0 : 1;
}
