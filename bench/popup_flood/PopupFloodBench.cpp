// A misbehaving service: 10,000 fragments a second, and no end in sight (20 s of them,
// ten times any rewrite's bound), into a visible popup through the real rewrite service (run under
// Xvfb). The rewrite must stop at its bound on length and the window stay responsive.
// Prints the longest stall of the main event loop, the frames over 16 ms, how the popup
// ended, and how much the process grew: at the peak and once the flood has passed.
//
// Targets: no stall over 16 ms; memory growth under 20 MB.
// With --show-changes, the popup shows the rewrite with its changes marked.

#include "FixtureServerThread.h"
#include "HumanizeService.h"
#include "PopupViewModel.h"
#include "PopupWindowController.h"
#include "SceneGraph.h"
#include "SessionDesk.h"
#include "StorageManager.h"

#include <QElapsedTimer>
#include <QEventLoop>
#include <QFile>
#include <QGuiApplication>
#include <QQmlEngine>
#include <QQuickWindow>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include <cstdio>
#include <cstdlib>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {

constexpr int fragmentsPerSecond = 10'000;
constexpr int seconds = 20;
constexpr int fragmentsPerPiece = fragmentsPerSecond / 1000; // one piece a millisecond

// Resident memory of this process, in bytes.
qint64 residentBytes()
{
    QFile statm(u"/proc/self/statm"_s);
    if (!statm.open(QIODevice::ReadOnly))
        return 0;
    const QList<QByteArray> fields = statm.readAll().split(' ');
    return fields.value(1).toLongLong() * sysconf(_SC_PAGESIZE);
}

FixtureReply floodReply()
{
    FixtureReply reply;
    reply.headers = { { "Content-Type", "text/event-stream" } };
    reply.framing = FixtureReply::Framing::Chunked;
    const QByteArray event = R"(data: {"choices":[{"delta":{"content":"flood word"}}]})"
                             "\n\n";
    const int count = fragmentsPerSecond * seconds;
    reply.body.reserve(event.size() * count);
    for (int i = 0; i < count; ++i) {
        reply.body += event;
        if (i % fragmentsPerPiece == fragmentsPerPiece - 1)
            reply.splitAt.append(reply.body.size());
    }
    reply.splitAt.removeLast(); // offsets inside the body only
    reply.delay = std::chrono::milliseconds(1);
    return reply;
}

} // namespace

int main(int argc, char *argv[])
{
    SceneGraph::chooseRenderer();
    QGuiApplication app(argc, argv);
    const bool showChanges = app.arguments().contains(u"--show-changes"_s);

    FixtureServerThread serviceThread;
    FixtureServer *server = serviceThread.server();
    if (!serviceThread.listen()) {
        std::fprintf(stderr, "popup_flood: the fixture service cannot listen\n");
        return 1;
    }
    server->route("/api/v1/chat/completions", floodReply());

    QTemporaryDir config;
    StorageManager storage(config.filePath(u"Tessary.conf"_s), server->url("/api/v1").toString());
    storage.setApiKey(u"bench"_s);
    HumanizeService service(storage);
    QQmlEngine engine;
    QElapsedTimer clock;
    clock.start();

    // The service logs a line per fragment; that cost stays in, the lines go nowhere.
    std::fflush(stdout);
    const int savedStdout = ::dup(STDOUT_FILENO);
    if (!std::freopen("/dev/null", "w", stdout))
        return 1;

    SessionDesk desk;
    RewriteSession session({ desk.textAccess, &desk.workspace, desk.pasteboard, service });
    session.takeCapture({ u"Rewrite this, please."_s, {} });
    session.setShowChanges(showChanges);
    PopupWindowController popup(session, engine);
    QQuickWindow *window = popup.window();
    qint64 lastTick = 0;
    qint64 longestGap = 0;
    qint64 longestGapAt = 0;
    QTimer ticker;
    ticker.setInterval(1);
    QObject::connect(&ticker, &QTimer::timeout, [&] {
        const qint64 now = clock.nsecsElapsed();
        if (lastTick && now - lastTick > longestGap) {
            longestGap = now - lastTick;
            longestGapAt = now;
        }
        lastTick = now;
    });
    qint64 frameStart = 0;
    int frames = 0;
    int slowFrames = 0;
    QObject::connect(window, &QQuickWindow::beforeFrameBegin, [&] { frameStart = clock.nsecsElapsed(); });
    QObject::connect(window, &QQuickWindow::frameSwapped, [&] {
        ++frames;
        if (frameStart && clock.nsecsElapsed() - frameStart > 16'000'000)
            ++slowFrames;
    });

    popup.showWindow();
    const bool shown = QTest::qWaitForWindowExposed(window);
    ticker.start();
    // Measured from the first fragment on: the stand-in service's copy of its reply, in
    // this process, is made as the request arrives and is none of the program's.
    qint64 before = 0;
    qint64 peak = 0;
    QTimer sampler;
    QObject::connect(&sampler, &QTimer::timeout, [&] { peak = std::max(peak, residentBytes()); });
    sampler.start(50);
    const qint64 start = clock.nsecsElapsed();
    qint64 endedAt = 0;
    QEventLoop flooding;
    QObject::connect(popup.viewModel(), &PopupViewModel::stateChanged, &flooding, [&] {
        if (popup.viewModel()->state() == PopupViewModel::State::Streaming && before == 0)
            before = peak = residentBytes();
        if (!popup.viewModel()->isBusy() && endedAt == 0)
            endedAt = clock.nsecsElapsed();
        if (!popup.viewModel()->isBusy())
            QTimer::singleShot(1000, &flooding, &QEventLoop::quit); // let the flood pass
    });
    QTimer::singleShot(std::chrono::seconds(seconds), &flooding, &QEventLoop::quit);
    flooding.exec();
    ticker.stop();
    sampler.stop();
    const double floodMs = (clock.nsecsElapsed() - start) / 1e6;
    const qint64 after = residentBytes();

    std::fflush(stdout);
    ::dup2(savedStdout, STDOUT_FILENO);
    ::close(savedStdout);
    if (!shown) {
        std::fprintf(stderr, "popup_flood: the popup never came on screen\n");
        return 1;
    }
    PopupViewModel *model = popup.viewModel();
    std::printf("popup_flood: %d fragments a second, without end%s\n", fragmentsPerSecond,
        showChanges ? ", Show changes on" : "");
    std::printf("  ended after %.0f ms: %s\n", floodMs,
        model->isBusy() ? "still running" : qPrintable(model->errorMessage().left(60) + u"…"_s));
    std::printf("  result kept: %lld characters\n", qlonglong(model->resultText().size()));
    std::printf("  longest main-loop stall: %.1f ms (target <= 16), ending %.0f ms %s the rewrite ended\n",
        longestGap / 1e6, std::abs(longestGapAt - endedAt) / 1e6,
        longestGapAt < endedAt ? "before" : "after");
    std::printf("  frames over 16 ms: %d of %d\n", slowFrames, frames);
    std::printf("  memory growth: %.1f MB at the peak, %.1f MB after (target < 20)\n", (peak - before) / 1e6,
        (after - before) / 1e6);

    return 0;
}
