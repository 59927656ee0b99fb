// A fast stream into a visible popup: 20,000 characters as 2,000 fragments at about
// 2,000 fragments a second, from a loopback service on its own thread, through the real
// rewrite service into the popup on screen (run under Xvfb). Prints the longest stall
// of the main event loop, the frames that took longer than 16 ms, how much of the time
// the main thread was busy, and how long after the last byte the whole text was on screen.
//
// Targets: no stall over 16 ms; the full text on screen within 50 ms of the last byte.
// Measured twice: with the plain result, and with Show changes on, where the marks of the
// whole text must be on screen in the same time.

#include "FixtureServerThread.h"
#include "HumanizeService.h"
#include "PopupViewModel.h"
#include "PopupWindowController.h"
#include "QuickItems.h"
#include "SceneGraph.h"
#include "SessionDesk.h"
#include "StorageManager.h"
#include "StreamedText.h"

#include <QElapsedTimer>
#include <QEventLoop>
#include <QGuiApplication>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QQmlEngine>
#include <QQuickItem>
#include <QQuickWindow>
#include <QTemporaryDir>
#include <QTest>
#include <QTimer>

#include <cstdio>
#include <ctime>

using namespace Qt::StringLiterals;

namespace {

// CPU time the calling thread has used, in nanoseconds.
qint64 threadCpuNs()
{
    timespec now {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return qint64(now.tv_sec) * 1'000'000'000 + now.tv_nsec;
}

constexpr int fragments = 2000;
constexpr int fragmentLength = 10;
constexpr int fragmentsPerPiece = 2; // two per millisecond: 2,000 a second

FixtureReply streamReply()
{
    FixtureReply reply;
    reply.headers = { { "Content-Type", "text/event-stream" } };
    for (int i = 0; i < fragments; ++i) {
        QString text = u"w%1 "_s.arg(i % 1000, 3, 10, QChar(u'0'));
        text = text.leftJustified(fragmentLength, u'x');
        if (i % 40 == 39)
            text[fragmentLength - 1] = u'\n';
        const QJsonObject event { { u"choices"_s,
            QJsonArray { QJsonObject { { u"delta"_s, QJsonObject { { u"content"_s, text } } } } } } };
        reply.body += "data: " + QJsonDocument(event).toJson(QJsonDocument::Compact) + "\n\n";
        if (i % fragmentsPerPiece == fragmentsPerPiece - 1)
            reply.splitAt.append(reply.body.size());
    }
    reply.body += "data: [DONE]\n\n";
    reply.delay = std::chrono::milliseconds(1);
    return reply;
}

} // namespace

int main(int argc, char *argv[])
{
    SceneGraph::chooseRenderer(); // as the program draws
    QGuiApplication app(argc, argv);

    // The service writes from its own thread, so it keeps its pace whatever the popup does.
    FixtureServerThread serviceThread;
    FixtureServer *server = serviceThread.server();
    if (!serviceThread.listen()) {
        std::fprintf(stderr, "popup_stream: the fixture service cannot listen\n");
        return 1;
    }
    server->route("/api/v1/chat/completions", streamReply());
    qint64 lastPieceNs = 0;
    QObject::connect(server, &FixtureServer::pieceWritten, &app,
        [&](const QByteArray &, int, qint64 ns) { lastPieceNs = std::max(lastPieceNs, ns); });

    QTemporaryDir config;
    StorageManager storage(config.filePath(u"Tessary.conf"_s), server->url("/api/v1").toString());
    storage.setApiKey(u"bench"_s);
    HumanizeService service(storage);
    const int fullLength = fragments * fragmentLength;
    const auto measure = [&](bool showChanges) -> bool {
        QQmlEngine engine;
        // The real service behind a session on a fake desktop: nothing is captured or replaced here.
        SessionDesk desk;
        RewriteSession session({ desk.textAccess, &desk.workspace, desk.pasteboard, service });
        session.takeCapture({ u"Rewrite this, please."_s, {} });
        PopupWindowController popup(session, engine);
        QQuickWindow *window = popup.window();
        QQuickItem *result = QuickItems::all(window->contentItem(), u"resultText"_s).value(0);
        QQuickItem *changes = QuickItems::all(window->contentItem(), u"changesLayer"_s).value(0);
        // What the result's pages hold: a long text spans several.
        const StreamedText *feed = window->findChild<StreamedText *>(u"resultFeed"_s);
        if (!feed) {
            std::fprintf(stderr, "popup_stream: the popup has no result feed\n");
            return false;
        }
        if (showChanges) {
            QQuickItem *view = result;
            while (view && !view->property("showChanges").isValid())
                view = view->parentItem();
            if (!view || !changes) {
                std::fprintf(stderr, "popup_stream: the popup has no Show changes\n");
                return false;
            }
            view->setProperty("showChanges", true);
        }
        // On screen: the text itself, or the marks made for all of it.
        const auto shownAll = [&] {
            if (!showChanges)
                return feed && feed->shownText().size() >= fullLength;
            return popup.viewModel()->resultText().size() >= fullLength && !popup.viewModel()->isBusy()
                && changes->property("current").toBool();
        };

        // Main-loop stalls: the longest gap between the ticks of a 1 ms timer.
        QElapsedTimer clock;
        clock.start();
        qint64 lastTick = 0;
        qint64 longestGap = 0;
        QTimer ticker;
        ticker.setInterval(1);
        QObject::connect(&ticker, &QTimer::timeout, [&] {
            const qint64 now = clock.nsecsElapsed();
            if (lastTick)
                longestGap = std::max(longestGap, now - lastTick);
            lastTick = now;
        });

        // Frames: from the start of a frame's animation step to its swap.
        qint64 frameStart = 0;
        int frames = 0;
        int slowFrames = 0;
        qint64 shownAllNs = 0;
        QObject::connect(window, &QQuickWindow::beforeFrameBegin, [&] { frameStart = clock.nsecsElapsed(); });
        QObject::connect(window, &QQuickWindow::frameSwapped, [&] {
            ++frames;
            if (frameStart && clock.nsecsElapsed() - frameStart > 16'000'000)
                ++slowFrames;
            if (!shownAllNs && shownAll())
                shownAllNs = FixtureServer::now();
        });

        popup.showWindow();
        if (!QTest::qWaitForWindowExposed(window)) {
            std::fprintf(stderr, "popup_stream: the popup never came on screen\n");
            return false;
        }
        QTest::qWait(200); // first frames and the shader cache settle before measuring
        frames = slowFrames = 0;
        lastTick = 0;
        ticker.start();
        // Shown means started: the first rewrite is already on its way. The loop sleeps
        // while there is nothing to do, as the program's own does; one that polls would take
        // a core from the service, the reader and the X server, and its own stalls would be
        // the scheduler taking that core back.
        const qint64 streamStart = clock.nsecsElapsed();
        const qint64 cpuStart = threadCpuNs();
        QEventLoop streaming;
        QObject::connect(window, &QQuickWindow::frameSwapped, &streaming, [&] {
            if (shownAllNs)
                streaming.quit();
        });
        QTimer::singleShot(std::chrono::seconds(30), &streaming, &QEventLoop::quit);
        streaming.exec();
        ticker.stop();
        const double busyMs = (threadCpuNs() - cpuStart) / 1e6;
        const double streamMs = (clock.nsecsElapsed() - streamStart) / 1e6;
        if (!shownAllNs) {
            std::fprintf(stderr, "popup_stream: the full text never reached the screen\n");
            return false;
        }

        const double gapMs = longestGap / 1e6;
        const double lastByteToScreenMs = (shownAllNs - lastPieceNs) / 1e6;
        std::printf("popup_stream%s: %d fragments, %d characters\n", showChanges ? " with Show changes" : "",
            fragments, fullLength);
        std::printf("  longest main-loop stall: %.1f ms (target <= 16)\n", gapMs);
        std::printf("  frames over 16 ms: %d of %d\n", slowFrames, frames);
        std::printf("  main thread busy: %.0f ms of the %.0f ms the stream took\n", busyMs, streamMs);
        std::printf("  last byte to full text on screen: %.1f ms (target <= 50)\n", lastByteToScreenMs);
        std::printf("  state at the end: %s\n",
            popup.viewModel()->state() == PopupViewModel::State::Done ? "done" : "not done");
        return gapMs <= 16 && lastByteToScreenMs <= 50;
    };
    measure(false);
    measure(true);

    return 0;
}
