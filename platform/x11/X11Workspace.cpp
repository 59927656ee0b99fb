#include "X11Workspace.h"

#include "ApplicationName.h"

#include <QTimer>
#include <QWindow>

namespace {
// Window managers usually switch within a few milliseconds; a bound of half a second
// keeps Replace from pasting into whatever window happens to be in front.
constexpr int activationCheckMs = 20;
constexpr int activationChecks = 25;
} // namespace

X11Workspace::X11Workspace(std::shared_ptr<X11Connection> x11, QObject *parent)
    : QObject(parent)
    , m_x11(std::move(x11))
    , m_applicationDirs(applicationDirs())
{
}

void X11Workspace::frontmostApplication(std::function<void(std::optional<RunningApplication>)> done)
{
    const xcb_window_t window = m_x11->activeWindow();
    if (window == XCB_NONE) {
        done(std::nullopt);
        return;
    }
    RunningApplication app;
    app.window = window;
    app.pid = m_x11->windowPid(window).value_or(0);
    const auto windowClass = m_x11->windowClass(window);
    const QString key = windowClass ? windowClass->instance + u'\n' + windowClass->className : QString();
    if (windowClass && m_namesByClass.contains(key)) {
        app.name = m_namesByClass.value(key);
    } else {
        app.name = applicationName(windowClass, app.pid, m_applicationDirs);
        if (windowClass)
            m_namesByClass.insert(key, app.name);
    }
    if (windowClass)
        app.windowClass = { windowClass->instance, windowClass->className };
    done(app);
}

void X11Workspace::activate(const RunningApplication &app, std::function<void(bool)> done)
{
    if (app.window == XCB_NONE) {
        if (done)
            done(false);
        return;
    }
    if (m_x11->activeWindow() != app.window)
        m_x11->requestActivation(app.window);
    waitUntilActive(app.window, activationChecks, std::move(done));
}

void X11Workspace::waitUntilActive(xcb_window_t window, int checksLeft, std::function<void(bool)> done)
{
    const bool active = m_x11->activeWindow() == window && m_x11->isViewable(window);
    if (active || checksLeft <= 0) {
        if (done)
            done(active);
        return;
    }
    QTimer::singleShot(activationCheckMs, this, [this, window, checksLeft, done = std::move(done)]() mutable {
        waitUntilActive(window, checksLeft - 1, std::move(done));
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
