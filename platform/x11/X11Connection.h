#pragma once

#include <QString>

#include <memory>
#include <optional>
#include <xcb/xcb.h>
#include <xcb/xcb_ewmh.h>

struct WindowClass
{
    QString instance;
    QString className;
};

// Our own connection to the X server, shared by the workspace and key synthesis
// backends. Kept apart from Qt's connection so that nothing here depends on which
// Qt platform plugin runs, and round trips never see Qt's events.
class X11Connection
{
public:
    // nullptr when there is no X server to talk to.
    static std::shared_ptr<X11Connection> open();
    ~X11Connection();

    xcb_connection_t *connection() const { return m_connection; }
    xcb_window_t root() const { return m_screen->root; }

    xcb_window_t activeWindow();
    std::optional<quint32> windowPid(xcb_window_t window);
    // Exists and is mapped on screen: a closed window may linger in the hints for a while.
    bool isViewable(xcb_window_t window);
    std::optional<WindowClass> windowClass(xcb_window_t window);
    // Asks the window manager to activate window, as a pager would (source 2), with the
    // server's current time so focus-stealing prevention takes it as a fresh request.
    void requestActivation(xcb_window_t window);

private:
    X11Connection() = default;
    xcb_timestamp_t serverTime();

    xcb_connection_t *m_connection = nullptr;
    xcb_screen_t *m_screen = nullptr;
    int m_screenNumber = 0;
    xcb_ewmh_connection_t m_ewmh {};
    xcb_window_t m_timeWindow = XCB_NONE;
};
