// From a Trigger() call on the session bus to the popup on screen showing the text
// captured from mousepad over the accessibility bus: the controller, the capture and the
// popup of the real program, in this process, on a headless desktop: X11, or Plasma
// Wayland when started in one. 30 runs; prints the median and the slowest. Target: median
// under 30 ms.

#include "AccessibilityHelper.h"
#include "AtspiClient.h"
#include "DBusService.h"
#include "DesktopFixture.h"
#include "HumanizeService.h"
#include "MakePlatform.h"
#include "PopupViewModel.h"
#include "PopupWindowController.h"
#include "QmlEngine.h"
#include "RewriteSessions.h"
#include "SceneGraph.h"
#include "Selection.h"
#include "StorageManager.h"

#include <QApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCall>
#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QFile>
#include <QHash>
#include <QProcess>
#include <QQuickWindow>
#include <QTcpServer>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>

using namespace Qt::StringLiterals;
using namespace Desktop;

namespace {

const QString paragraph = u"Keep this. Measure how fast this sentence reaches the popup. Keep that."_s;
const QString sentence = u"Measure how fast this sentence reaches the popup."_s;

bool waitFor(const std::function<bool()> &condition, int ms)
{
    QDeadlineTimer deadline(ms);
    while (!condition()) {
        if (deadline.hasExpired())
            return false;
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
    }
    return true;
}

} // namespace

int main(int argc, char *argv[])
{
    SceneGraph::chooseRenderer(); // as the program draws
    QApplication app(argc, argv);
    QApplication::setQuitOnLastWindowClosed(false);

    // On Wayland no tool may type into mousepad: the sentence is selected over the
    // accessibility bus, and KWin says which window is in front.
    const bool wayland = QGuiApplication::platformName().startsWith(u"wayland"_s);
    std::unique_ptr<Editor> x11Editor;
    QProcess waylandEditor;
    QTemporaryDir config;
    if (wayland) {
        QFile file(config.filePath(u"text.txt"_s));
        AtspiClient atspi;
        const qsizetype start = paragraph.indexOf(sentence);
        if (!file.open(QIODevice::WriteOnly) || file.write(paragraph.toUtf8()) < 0 || !atspi.connect())
            return 1;
        file.close();
        waylandEditor.start(u"mousepad"_s, { u"--disable-server"_s, file.fileName() });
        if (!waitFor([&] { return atspi.text(u"mousepad"_s) == paragraph; }, 15000)
            || !atspi.select(u"mousepad"_s, int(start), int(start + sentence.size()))) {
            std::fprintf(stderr, "trigger_latency: mousepad did not come up\n");
            return 1;
        }
    } else {
        x11Editor = std::make_unique<Editor>(paragraph, true);
        if (!x11Editor->waitUntilActive()) {
            std::fprintf(stderr, "trigger_latency: mousepad did not come up\n");
            return 1;
        }
        keys(keysSelecting(paragraph, sentence));
    }
    Platform platform = makePlatform();
    const auto editorInFront = [&] {
        if (x11Editor)
            return x11Editor->waitUntilActive();
        return waitFor(
            [&] {
                std::optional<QString> front;
                platform.workspace->frontmostApplication(
                    [&](std::optional<RunningApplication> app) { front = app ? app->name : QString(); });
                return waitFor([&] { return front.has_value(); }, 2000) && *front == u"mousepad"_s;
            },
            10000);
    };
    // A model that is still thinking: connections are taken and never answered, so the
    // popup's first frame is the one a user sees while waiting, not a failure's.
    QTcpServer thinking;
    if (!thinking.listen(QHostAddress::LocalHost))
        return 1;
    StorageManager storage(
        config.filePath(u"Tessary.conf"_s), u"http://127.0.0.1:%1/api/v1"_s.arg(thinking.serverPort()));
    HumanizeService rewriter(storage);
    AccessibilityHelper textAccess(platform);
    QmlEngine qml;
    RewriteSessions delegate({ textAccess, platform.workspace.get(), *platform.pasteboard, rewriter }, qml);
    DBusService bus;
    if (!bus.registerService()) {
        std::fprintf(stderr, "trigger_latency: cannot own the bus name\n");
        return 1;
    }
    QObject::connect(&bus, &DBusService::triggerRequested, &delegate, &RewriteSessions::triggerHumanize);

    constexpr int runs = 30;
    QList<double> times;
    int misses = 0;
    QList<double> created; // Trigger() to the popup built: capture and construction
    for (int run = 0; run < runs + 1; ++run) { // the first run warms up and is not counted
        if (!editorInFront()) {
            std::fprintf(stderr, "trigger_latency: mousepad is not in front\n");
            return 1;
        }
        PopupWindowController *before = delegate.popupWindowController();
        // Times are taken where they happen, not when this loop next looks: while the
        // popup shows that it is waiting for the model, processing events may not return
        // before a frame or two has been drawn.
        QElapsedTimer clock;
        QHash<QQuickWindow *, double> shownAt; // Trigger() to show(): capture and construction
        QHash<QQuickWindow *, double> swappedAt; // Trigger() to the first frame on screen
        QList<QMetaObject::Connection> listening;
        const auto listen = [&](QQuickWindow *quick) {
            listening.append(QObject::connect(quick, &QWindow::visibleChanged, [&, quick](bool visible) {
                if (visible && !shownAt.contains(quick))
                    shownAt.insert(quick, clock.nsecsElapsed() / 1e6);
            }));
            listening.append(QObject::connect(quick, &QQuickWindow::frameSwapped, [&, quick] {
                if (!swappedAt.contains(quick))
                    swappedAt.insert(quick, clock.nsecsElapsed() / 1e6);
            }));
        };
        // The popup's window is usually built ahead: listen to every window there is now.
        QList<QQuickWindow *> known;
        for (QWindow *window : QGuiApplication::topLevelWindows()) {
            if (auto *quick = qobject_cast<QQuickWindow *>(window)) {
                listen(quick);
                known.append(quick);
            }
        }
        clock.start();
        QDBusConnection::sessionBus().asyncCall(QDBusMessage::createMethodCall(
            DBusService::serviceName, DBusService::objectPath, DBusService::serviceName, u"Trigger"_s));
        QQuickWindow *window = nullptr;
        const bool shown = waitFor(
            [&] {
                PopupWindowController *popup = delegate.popupWindowController();
                if (!popup || popup == before || !popup->window())
                    return false;
                if (!window) {
                    window = popup->window();
                    // Built on the spot: it is seen no later than now.
                    if (!known.contains(window)) {
                        shownAt.insert(window, clock.nsecsElapsed() / 1e6);
                        listen(window);
                    }
                }
                return swappedAt.contains(window) && window->isExposed()
                    && popup->viewModel()->originalText() == sentence;
            },
            10000);
        for (const QMetaObject::Connection &connection : std::as_const(listening))
            QObject::disconnect(connection);
        const double ms = window ? swappedAt.value(window) : 0;
        const double createdMs = window ? shownAt.value(window) : 0;
        if (!shown) {
            // Counted, not fatal: one lost selection should not hide the other figures.
            std::fprintf(stderr, "trigger_latency: run %d: no popup with the sentence\n", run);
            ++misses;
            if (PopupWindowController *popup = delegate.popupWindowController())
                popup->close();
            continue;
        }
        if (run > 0) {
            times.append(ms);
            created.append(createdMs);
        }
        delegate.popupWindowController()->close();
    }

    if (times.isEmpty()) {
        std::fprintf(stderr, "trigger_latency: no run showed the popup\n");
        return 1;
    }
    std::sort(times.begin(), times.end());
    std::printf(
        "trigger_latency (%s): Trigger() to popup on screen with the captured text, %d runs (%d missed)\n",
        wayland ? "KWin Wayland" : "X11", runs, misses);
    std::printf("  median: %.1f ms (target < 30)\n", times.at(times.size() / 2));
    std::printf("  fastest: %.1f ms, slowest: %.1f ms\n", times.first(), times.last());
    std::sort(created.begin(), created.end());
    std::printf(
        "  of which capture and building the popup, median: %.1f ms\n", created.at(created.size() / 2));
    return 0;
}
