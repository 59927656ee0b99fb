// How long the window thread stalls while capture and Replace talk to an application
// that answers every accessibility call after 250 ms. The probe starts that application
// (itself, with --slow-application): a window in front and an accessible text object
// on the accessibility bus whose answers come late. A timer ticking every millisecond on
// the window thread measures the longest gap between two ticks.
#include "AccessibilityHelper.h"
#include "atspi/AtspiAccessibility.h"
#include "clipboard/ClipboardPasteboard.h"
#include "x11/X11KeySynth.h"
#include "x11/X11PrimarySelection.h"
#include "x11/X11Workspace.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVariant>
#include <QDBusVirtualObject>
#include <QElapsedTimer>
#include <QGuiApplication>
#include <QProcess>
#include <QRasterWindow>
#include <QTimer>

#include <algorithm>
#include <cstdio>

using namespace Qt::StringLiterals;

namespace {

constexpr int answerDelayMs = 250;
constexpr int rounds = 5;
constexpr double frameBudgetMs = 16.0;
const QString objectPath = u"/org/a11y/atspi/accessible/slow"_s;

// Answers every call on the accessibility bus, but only after answerDelayMs: a text
// field with "slow text" selected, editable, focused.
class SlowObject : public QDBusVirtualObject
{
public:
    explicit SlowObject(QDBusConnection bus)
        : m_bus(bus)
    {
    }

    QString introspect(const QString &) const override { return {}; }

    bool handleMessage(const QDBusMessage &message, const QDBusConnection &) override
    {
        message.setDelayedReply(true);
        QVariantList answer;
        const QString member = message.member();
        if (member == u"GetState")
            answer = { QVariant::fromValue(QList<quint32> { (1u << 7) | (1u << 12) | (1u << 25), 0 }) };
        else if (member == u"GetNSelections")
            answer = { 1 };
        else if (member == u"GetSelection")
            answer = { 0, 9 };
        else if (member == u"GetText")
            answer = { u"slow text"_s };
        else if (member == u"DeleteText" || member == u"InsertText")
            answer = { true };
        else if (member == u"GetChildren")
            answer = { QVariant() };
        const QDBusMessage reply = message.createReply(answer);
        QTimer::singleShot(answerDelayMs, [bus = m_bus, reply]() mutable { bus.send(reply); });
        return true;
    }

private:
    QDBusConnection m_bus;
};

int slowApplication(int argc, char **argv)
{
    qputenv("NO_AT_BRIDGE", "1");
    qputenv("QT_LINUX_ACCESSIBILITY_ALWAYS_ON", "0");
    QGuiApplication app(argc, argv);
    const QDBusMessage address = QDBusConnection::sessionBus().call(QDBusMessage::createMethodCall(
        u"org.a11y.Bus"_s, u"/org/a11y/bus"_s, u"org.a11y.Bus"_s, u"GetAddress"_s));
    QDBusConnection bus = QDBusConnection::connectToBus(address.arguments().value(0).toString(), u"slow"_s);
    SlowObject object(bus);
    bus.registerVirtualObject(objectPath, &object);
    std::printf("%s\n", qPrintable(bus.baseService()));
    std::fflush(stdout);

    QRasterWindow window;
    window.setTitle(u"slow application"_s);
    window.resize(300, 200);
    window.show();
    window.requestActivate();
    // Tells the probe where the focus is, as a toolkit does; again now and then, in
    // case the probe was not listening yet.
    QTimer focus;
    QObject::connect(&focus, &QTimer::timeout, [&] {
        QDBusMessage signal
            = QDBusMessage::createSignal(objectPath, u"org.a11y.atspi.Event.Object"_s, u"StateChanged"_s);
        signal << u"focused"_s << 1 << 0 << QVariant::fromValue(QDBusVariant(0)) << QVariantMap();
        bus.send(signal);
    });
    focus.start(200);
    return app.exec();
}

struct Stalls
{
    QElapsedTimer clock;
    qint64 last = 0;
    double longestMs = 0;
    int overBudget = 0;

    void tick()
    {
        const qint64 now = clock.nsecsElapsed();
        const double gap = double(now - last) / 1e6;
        last = now;
        if (gap > longestMs)
            longestMs = gap;
        if (gap > frameBudgetMs)
            ++overBudget;
    }
};

} // namespace

int main(int argc, char **argv)
{
    if (argc > 1 && qstrcmp(argv[1], "--slow-application") == 0)
        return slowApplication(argc, argv);

    QGuiApplication app(argc, argv);
    auto x11 = X11Connection::open();
    if (!x11) {
        std::fprintf(stderr, "stall_probe_e2e: no X server; run it inside scripts/headless-session\n");
        return 1;
    }
    X11Workspace workspace(x11);
    X11KeySynth keys(x11);
    X11PrimarySelection primary(x11, QGuiApplication::clipboard());
    AtspiAccessibility accessibility;
    ClipboardPasteboard pasteboard(QGuiApplication::clipboard(), x11);
    AccessibilityHelper helper(workspace, accessibility, keys, pasteboard, &primary);

    QProcess slow;
    slow.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    QString slowService;
    QObject::connect(&slow, &QProcess::readyReadStandardOutput,
        [&] { slowService = QString::fromUtf8(slow.readAllStandardOutput()).trimmed(); });
    slow.start(QCoreApplication::applicationFilePath(), { u"--slow-application"_s });
    if (!slow.waitForStarted(5000)) {
        std::fprintf(stderr, "stall_probe_e2e: the slow application did not start\n");
        return 1;
    }

    Stalls stalls;
    QTimer ticker;
    ticker.setTimerType(Qt::PreciseTimer);
    QObject::connect(&ticker, &QTimer::timeout, [&] { stalls.tick(); });

    int round = 0;
    QList<double> captureMs;
    QList<double> replaceMs;
    int accessibleCaptures = 0;
    QElapsedTimer road;
    std::function<void()> next;
    next = [&] {
        if (round == rounds) {
            app.quit();
            return;
        }
        ++round;
        road.start();
        helper.captureSelectedText([&](const Capture &capture) {
            captureMs.append(double(road.nsecsElapsed()) / 1e6);
            if (capture.target.method == CaptureTarget::Method::Accessibility)
                ++accessibleCaptures;
            CaptureTarget target = capture.target;
            if (target.method == CaptureTarget::Method::None) {
                // Nothing came back in time: Replace as if the bus had answered.
                target.method = CaptureTarget::Method::Accessibility;
                target.element = Element { slowService, objectPath };
                target.selected = u"slow text"_s;
            }
            road.start();
            helper.replaceSelectedText(u"rewritten"_s, target, [&](const std::optional<WrittenPlace> &) {
                replaceMs.append(double(road.nsecsElapsed()) / 1e6);
                QTimer::singleShot(0, next);
            });
        });
    };

    // Starts once the slow application's window is in front.
    QTimer waitForFront;
    QObject::connect(&waitForFront, &QTimer::timeout, [&] {
        workspace.frontmostApplication([&](std::optional<RunningApplication> front) {
            if (!front || front->pid != slow.processId() || slowService.isEmpty() || !waitForFront.isActive())
                return;
            waitForFront.stop();
            stalls.clock.start();
            ticker.start(1);
            next();
        });
    });
    waitForFront.start(50);
    QTimer::singleShot(60000, &app, [&] {
        std::fprintf(stderr, "stall_probe_e2e: gave up after 60 s\n");
        app.exit(1);
    });
    const int status = app.exec();
    slow.kill();
    slow.waitForFinished();
    if (status != 0)
        return status;

    const auto longest
        = [](const QList<double> &times) { return *std::max_element(times.begin(), times.end()); };
    std::printf("stall probe: %d rounds of capture and Replace, every accessibility answer %d ms late\n",
        rounds, answerDelayMs);
    std::printf("longest stall of the window thread: %.1f ms, %d over %.0f ms (target: none over %.0f ms)\n",
        stalls.longestMs, stalls.overBudget, frameBudgetMs, frameBudgetMs);
    std::printf(
        "capture took up to %.0f ms (%d of %d through accessibility; the rest fell back on the deadline)\n",
        longest(captureMs), accessibleCaptures, rounds);
    std::printf("Replace answered within %.0f ms\n", longest(replaceMs));
    return stalls.overBudget == 0 ? 0 : 2;
}
