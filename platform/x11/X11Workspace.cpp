#include "X11Workspace.h"

#include <QFutureWatcher>
#include <QTimer>
#include <QWindow>
#include <QtConcurrentRun>

namespace {
// Window managers usually switch within a few milliseconds; a bound of half a second
// keeps Replace from pasting into whatever window happens to be in front.
constexpr int activationCheckMs = 20;
constexpr int activationChecks = 25;
} // namespace

X11Workspace::X11Workspace(std::shared_ptr<X11Connection> x11, QObject *parent)
    : QObject(parent)
    , m_x11(std::move(x11))
{
    auto *reading = new QFutureWatcher<QList<DesktopEntry>>(this);
    connect(reading, &QFutureWatcherBase::finished, this, [this, reading] {
        m_entries = reading->result();
        m_namesByClass.clear();
        reading->deleteLater();
    });
    reading->setFuture(QtConcurrent::run([dirs = applicationDirs()] { return readDesktopEntries(dirs); }));
}

void X11Workspace::frontmostApplication(std::function<void(std::optional<RunningApplication>)> done)
{
    m_x11->activeWindow([this, done = std::move(done)](xcb_window_t window) {
        if (window == XCB_NONE) {
            done(std::nullopt);
            return;
        }
        describe(window, done);
    });
}

void X11Workspace::describe(xcb_window_t window, std::function<void(std::optional<RunningApplication>)> done)
{
    // Both questions go out at once; the answer is complete when both are in.
    struct Answers
    {
        std::optional<quint32> pid;
        std::optional<WindowClass> windowClass;
        int missing = 2;
    };
    auto answers = std::make_shared<Answers>();
    const auto complete = [this, window, answers, done = std::move(done)] {
        if (--answers->missing > 0)
            return;
        RunningApplication app;
        app.window = window;
        app.pid = answers->pid.value_or(0);
        if (answers->windowClass)
            app.windowClass = { answers->windowClass->instance, answers->windowClass->className };
        app.name = nameOf(answers->windowClass, app.pid);
        done(app);
    };
    m_x11->windowPid(window, [answers, complete](std::optional<quint32> pid) {
        answers->pid = pid;
        complete();
    });
    m_x11->windowClass(window, [answers, complete](std::optional<WindowClass> windowClass) {
        answers->windowClass = windowClass;
        complete();
    });
}

QString X11Workspace::nameOf(const std::optional<WindowClass> &windowClass, qint64 pid)
{
    if (!windowClass)
        return applicationName(windowClass, pid, QList<DesktopEntry>());
    const QString key = windowClass->instance + u'\n' + windowClass->className;
    if (const auto known = m_namesByClass.constFind(key); known != m_namesByClass.cend())
        return *known;
    const QString name = applicationName(windowClass, pid, m_entries.value_or(QList<DesktopEntry>()));
    if (m_entries)
        m_namesByClass.insert(key, name);
    return name;
}

void X11Workspace::activate(const RunningApplication &app, std::function<void(bool)> done)
{
    if (app.window == XCB_NONE) {
        if (done)
            done(false);
        return;
    }
    m_x11->activeWindow(
        [this, window = xcb_window_t(app.window), done = std::move(done)](xcb_window_t active) {
            if (active != window)
                m_x11->requestActivation(window);
            waitUntilActive(window, activationChecks, done);
        });
}

void X11Workspace::waitUntilActive(xcb_window_t window, int checksLeft, std::function<void(bool)> done)
{
    m_x11->activeWindow([this, window, checksLeft, done = std::move(done)](xcb_window_t active) {
        m_x11->isViewable(
            window, [this, window, checksLeft, done, isActive = active == window](bool viewable) {
                const bool ready = isActive && viewable;
                if (ready || checksLeft <= 0) {
                    if (done)
                        done(ready);
                    return;
                }
                QTimer::singleShot(activationCheckMs, this,
                    [this, window, checksLeft, done] { waitUntilActive(window, checksLeft - 1, done); });
            });
    });
}

void X11Workspace::activateSelf(QWindow *window)
{
    if (!window)
        return;
    window->show();
    window->raise();
    window->requestActivate();
    // Qt asks as an application (source 1), which focus-stealing prevention may refuse
    // for a tray program that the user never clicked; asking as a pager is honoured.
    m_x11->requestActivation(xcb_window_t(window->winId()));
}
