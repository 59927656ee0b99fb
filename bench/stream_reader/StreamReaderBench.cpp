// Three figures for the reading of a streamed rewrite:
//  1. how fast the event-stream reader cuts a 10 MB stream into events;
//  2. how fast StreamParser turns it into fragments, JSON parsing included;
//  3. 2,000 fragments written on loopback as fast as the server can, and 1 ms apart: all
//     reach onToken on the main thread in order, and how long each took from the write.

#include "EventStreamReader.h"
#include "FixtureServerThread.h"
#include "HumanizeService.h"
#include "StorageManager.h"
#include "StreamParser.h"

#include <QCoreApplication>
#include <QTemporaryDir>
#include <QTimer>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <functional>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

QByteArray chunkEvent(const QByteArray &content)
{
    return R"(data: {"id":"chatcmpl-7f3a","object":"chat.completion.chunk","created":1700000000,)"
           R"("model":"llama3.1:8b","choices":[{"index":0,"delta":{"content":")"
        + content + R"("},"finish_reason":null}]})" + "\n\n";
}

QByteArray tenMegabyteStream()
{
    const QList<QByteArray> words { " the", " quick", " caf\xc3\xa9", ",", " don't", " \\\"quoted\\\"",
        "\\n\\n", " r\xc3\xa9sum\xc3\xa9", " \xf0\x9f\x99\x82", " paragraph" };
    QByteArray stream;
    for (qsizetype i = 0; stream.size() < 10 * 1024 * 1024; ++i)
        stream += chunkEvent(words[i % words.size()]);
    stream += "data: [DONE]\n\n";
    return stream;
}

// The best of five rounds, in MB/s, feeding the stream in typical network reads.
// `read` makes a fresh reader, feeds it and finishes it, returning how many events it found.
double throughput(const QByteArray &stream, const std::function<qsizetype(QByteArrayView, qsizetype)> &read,
    qsizetype &events)
{
    constexpr qsizetype readSize = 16 * 1024;
    double best = 0;
    for (int round = 0; round < 5; ++round) {
        const auto start = std::chrono::steady_clock::now();
        events = read(stream, readSize);
        const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
        best = std::max(best, double(stream.size()) / (1024 * 1024) / took.count());
    }
    return best;
}

template<typename Reader> void feedInReads(Reader &reader, QByteArrayView stream, qsizetype readSize)
{
    for (qsizetype at = 0; at < stream.size(); at += readSize)
        reader.feed(stream.sliced(at, std::min(readSize, stream.size() - at)));
    reader.finish();
}

class CountingEvents : public EventStreamReader::Listener
{
public:
    qsizetype events = 0;
    bool data(QByteArrayView) override
    {
        ++events;
        return true;
    }
};

class CountingFragments : public StreamParser::Listener
{
public:
    qsizetype fragments = 0;

    void line(QByteArrayView) override { }
    void endMarker() override { }
    void event(QByteArrayView) override { }
    void token(const QString &) override { ++fragments; }
    void streamedError(const QString &, const QString &) override { }
    void nonStreamedError(const QString &, const QString &) override { }
};

int parseThroughput()
{
    const QByteArray stream = tenMegabyteStream();
    const double megabytes = double(stream.size()) / (1024 * 1024);

    qsizetype events = 0;
    const double reader = throughput(
        stream,
        [](QByteArrayView bytes, qsizetype readSize) {
            CountingEvents listener;
            EventStreamReader reader(listener);
            feedInReads(reader, bytes, readSize);
            return listener.events;
        },
        events);
    std::printf("event-stream reader: %.1f MB/s over %.1f MB, %lld events (target >= 800 MB/s)\n", reader,
        megabytes, static_cast<long long>(events));

    qsizetype fragments = 0;
    const double parser = throughput(
        stream,
        [](QByteArrayView bytes, qsizetype readSize) {
            CountingFragments listener;
            StreamParser parser(listener);
            feedInReads(parser, bytes, readSize);
            return listener.fragments;
        },
        fragments);
    // Flat out on loopback, a server here gets under 90,000 fragments a second to the
    // reader; the parser must keep several times ahead of that.
    const double perSecond = parser * (1024 * 1024) / (double(stream.size()) / double(fragments));
    std::printf("fragments, JSON parsed: %.1f MB/s, %.0f fragments/s, %lld fragments (target >= 400,000 "
                "fragments/s)\n",
        parser, perSecond, static_cast<long long>(fragments));
    return reader >= 800 && perSecond >= 400000 ? 0 : 1;
}

int loopbackDelivery(std::chrono::milliseconds pace, const char *label)
{
    constexpr int count = 2000;
    FixtureReply reply;
    reply.headers = { { "Content-Type", "text/event-stream" } };
    for (int i = 0; i < count; ++i) {
        reply.body += chunkEvent("t" + QByteArray::number(i));
        reply.splitAt.append(reply.body.size());
    }
    reply.framing = FixtureReply::Framing::Chunked;
    reply.delay = pace;

    // The server writes from a thread of its own, as a real one would.
    FixtureServerThread serverThread;
    FixtureServer *server = serverThread.server();
    server->route("/api/v1/chat/completions", reply);
    std::vector<qint64> written(count, 0);
    QObject::connect(
        server, &FixtureServer::pieceWritten, server,
        [&written](const QByteArray &, int index, qint64 at) {
            if (index < int(written.size()))
                written[size_t(index)] = at;
        },
        Qt::DirectConnection);
    if (!serverThread.listen()) {
        std::fprintf(stderr, "cannot listen on loopback\n");
        return 1;
    }

    QTemporaryDir dir;
    StorageManager storage(dir.filePath(u"Tessary.conf"_s), server->url("/api/v1").toString());
    HumanizeService service(storage);

    std::vector<qint64> received;
    received.reserve(count);
    bool inOrder = true;
    QString outcome;
    RewriteCallbacks callbacks;
    callbacks.onToken = [&](const QString &fragment) {
        received.push_back(FixtureServer::now());
        inOrder = inOrder && fragment == u"t"_s + QString::number(received.size() - 1);
    };
    callbacks.onComplete = [&] {
        outcome = u"complete"_s;
        QCoreApplication::quit();
    };
    callbacks.onError = [&](const Failure &failure) {
        outcome = failure.message;
        QCoreApplication::quit();
    };

    // The service logs every line on stdout; that cost stays in, the text goes nowhere.
    std::fflush(stdout);
    const int savedStdout = ::dup(STDOUT_FILENO);
    std::freopen("/dev/null", "w", stdout);
    QTimer::singleShot(0, [&] { service.humanize(u"benchmark"_s, u"natural"_s, callbacks); });
    QTimer::singleShot(std::chrono::seconds(30), [] { QCoreApplication::quit(); });
    QCoreApplication::exec();
    std::fflush(stdout);
    ::dup2(savedStdout, STDOUT_FILENO);
    ::close(savedStdout);

    if (outcome != u"complete"_s || int(received.size()) != count || !inOrder) {
        std::printf("%s: FAILED, %zu of %d fragments, %s, outcome: %s\n", label, received.size(), count,
            inOrder ? "in order" : "out of order", qPrintable(outcome));
        return 1;
    }
    std::vector<double> delays;
    for (int i = 0; i < count; ++i)
        delays.push_back(double(received[size_t(i)] - written[size_t(i)]) / 1e6);
    std::sort(delays.begin(), delays.end());
    const double p50 = delays[delays.size() / 2];
    const double p99 = delays[delays.size() * 99 / 100];
    const double seconds = double(received.back() - written.front()) / 1e9;
    std::printf("%s: %d fragments in order, none lost; %.0f fragments/s; write to onToken p50 %.2f ms, "
                "p99 %.2f ms (target p99 < 5 ms)\n",
        label, count, count / seconds, p50, p99);
    return p99 < 5 ? 0 : 1;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const int parse = parseThroughput();
    // Unpaced, the server outruns the reader's three threads on a small machine and the
    // delay measures the queue; paced at 1 ms (ten times a fast model) it is the
    // reader's own latency.
    const int loopback = loopbackDelivery(std::chrono::milliseconds(0), "loopback, as fast as possible");
    const int paced = loopbackDelivery(std::chrono::milliseconds(1), "loopback, 1 ms apart");
    return parse | loopback | paced;
}
