#include "X11Connection.h"

#include <QByteArrayList>

#include <cstdlib>

std::shared_ptr<X11Connection> X11Connection::open()
{
    int screenNumber = 0;
    xcb_connection_t *connection = xcb_connect(nullptr, &screenNumber);
    if (xcb_connection_has_error(connection)) {
        xcb_disconnect(connection);
        return nullptr;
    }
    std::shared_ptr<X11Connection> x11(new X11Connection);
    x11->m_connection = connection;
    x11->m_screenNumber = screenNumber;
    xcb_screen_iterator_t it = xcb_setup_roots_iterator(xcb_get_setup(connection));
    for (int i = 0; i < screenNumber && it.rem; ++i)
        xcb_screen_next(&it);
    x11->m_screen = it.data;
    if (!x11->m_screen
        || !xcb_ewmh_init_atoms_replies(&x11->m_ewmh, xcb_ewmh_init_atoms(connection, &x11->m_ewmh), nullptr))
        return nullptr;
    return x11;
}

X11Connection::~X11Connection()
{
    if (!m_connection)
        return;
    if (m_ewmh.connection)
        xcb_ewmh_connection_wipe(&m_ewmh);
    xcb_disconnect(m_connection);
}

xcb_window_t X11Connection::activeWindow()
{
    xcb_window_t window = XCB_NONE;
    if (!xcb_ewmh_get_active_window_reply(
            &m_ewmh, xcb_ewmh_get_active_window(&m_ewmh, m_screenNumber), &window, nullptr))
        return XCB_NONE;
    return window;
}

std::optional<quint32> X11Connection::windowPid(xcb_window_t window)
{
    uint32_t pid = 0;
    if (!xcb_ewmh_get_wm_pid_reply(&m_ewmh, xcb_ewmh_get_wm_pid(&m_ewmh, window), &pid, nullptr) || pid == 0)
        return std::nullopt;
    return pid;
}

bool X11Connection::isViewable(xcb_window_t window)
{
    xcb_get_window_attributes_reply_t *reply = xcb_get_window_attributes_reply(
        m_connection, xcb_get_window_attributes(m_connection, window), nullptr);
    const bool viewable = reply && reply->map_state == XCB_MAP_STATE_VIEWABLE;
    std::free(reply);
    return viewable;
}

std::optional<WindowClass> X11Connection::windowClass(xcb_window_t window)
{
    const auto cookie = xcb_get_property(m_connection, 0, window, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING, 0, 256);
    xcb_get_property_reply_t *reply = xcb_get_property_reply(m_connection, cookie, nullptr);
    if (!reply)
        return std::nullopt;
    const auto *bytes = static_cast<const char *>(xcb_get_property_value(reply));
    const int length = xcb_get_property_value_length(reply);
    // Two NUL-terminated strings: the instance name, then the class.
    const QByteArray value(bytes, length);
    std::free(reply);
    if (value.isEmpty())
        return std::nullopt;
    const QList<QByteArray> parts = value.split('\0');
    return WindowClass { QString::fromLocal8Bit(parts.value(0)), QString::fromLocal8Bit(parts.value(1)) };
}

xcb_timestamp_t X11Connection::serverTime()
{
    // The server stamps every PropertyNotify; touching a property of our own window is
    // the standard way to learn the current server time.
    if (m_timeWindow == XCB_NONE) {
        m_timeWindow = xcb_generate_id(m_connection);
        const uint32_t mask = XCB_EVENT_MASK_PROPERTY_CHANGE;
        xcb_create_window(m_connection, XCB_COPY_FROM_PARENT, m_timeWindow, root(), -1, -1, 1, 1, 0,
            XCB_WINDOW_CLASS_INPUT_ONLY, XCB_COPY_FROM_PARENT, XCB_CW_EVENT_MASK, &mask);
    }
    xcb_change_property(
        m_connection, XCB_PROP_MODE_APPEND, m_timeWindow, XCB_ATOM_WM_NAME, XCB_ATOM_STRING, 8, 0, nullptr);
    xcb_flush(m_connection);
    xcb_timestamp_t time = XCB_CURRENT_TIME;
    while (xcb_generic_event_t *event = xcb_wait_for_event(m_connection)) {
        const bool found = (event->response_type & 0x7f) == XCB_PROPERTY_NOTIFY;
        if (found)
            time = reinterpret_cast<xcb_property_notify_event_t *>(event)->time;
        std::free(event);
        if (found)
            break;
    }
    return time;
}

void X11Connection::requestActivation(xcb_window_t window)
{
    xcb_ewmh_request_change_active_window(
        &m_ewmh, m_screenNumber, window, XCB_EWMH_CLIENT_SOURCE_TYPE_OTHER, serverTime(), activeWindow());
    xcb_flush(m_connection);
}
