#include "X11Connection.h"

#include <QByteArrayList>
#include <QSocketNotifier>

#include <cstdlib>
#include <utility>
#include <xcb/xcbext.h>

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
    // The atoms are learnt once, at start, before anybody waits on us.
    if (!x11->m_screen
        || !xcb_ewmh_init_atoms_replies(&x11->m_ewmh, xcb_ewmh_init_atoms(connection, &x11->m_ewmh), nullptr))
        return nullptr;
    const char propertyName[] = "TESSARY_SELECTION";
    xcb_intern_atom_reply_t *atom = xcb_intern_atom_reply(
        connection, xcb_intern_atom(connection, 0, sizeof(propertyName) - 1, propertyName), nullptr);
    if (atom) {
        x11->m_selectionProperty = atom->atom;
        std::free(atom);
    }

    x11->m_ownWindow = xcb_generate_id(connection);
    const uint32_t mask = XCB_EVENT_MASK_PROPERTY_CHANGE;
    xcb_create_window(connection, XCB_COPY_FROM_PARENT, x11->m_ownWindow, x11->root(), -1, -1, 1, 1, 0,
        XCB_WINDOW_CLASS_INPUT_ONLY, XCB_COPY_FROM_PARENT, XCB_CW_EVENT_MASK, &mask);
    xcb_flush(connection);

    X11Connection *raw = x11.get();
    raw->m_notifier = new QSocketNotifier(xcb_get_file_descriptor(connection), QSocketNotifier::Read, raw);
    QObject::connect(raw->m_notifier, &QSocketNotifier::activated, raw, &X11Connection::read);
    return x11;
}

X11Connection::~X11Connection()
{
    if (!m_connection)
        return;
    delete m_notifier;
    if (m_ewmh.connection)
        xcb_ewmh_connection_wipe(&m_ewmh);
    xcb_disconnect(m_connection);
}

bool X11Connection::sameClient(xcb_window_t a, xcb_window_t b) const
{
    // Every client's resources share the bits outside the server's resource-id mask.
    const uint32_t mask = xcb_get_setup(m_connection)->resource_id_mask;
    return a != XCB_NONE && b != XCB_NONE && (a & ~mask) == (b & ~mask);
}

void X11Connection::whenReplied(unsigned int sequence, std::function<void(void *reply)> answer)
{
    m_pending.append({ sequence, std::move(answer) });
    xcb_flush(m_connection);
    // The reply may already sit in xcb's buffer, where the socket gives no sign of it.
    if (!m_readQueued) {
        m_readQueued = true;
        QMetaObject::invokeMethod(this, &X11Connection::read, Qt::QueuedConnection);
    }
}

void X11Connection::whenEvent(std::function<bool(const xcb_generic_event_t *event)> listener)
{
    m_listeners.append(std::move(listener));
}

void X11Connection::read()
{
    m_readQueued = false;
    bool progress = true;
    while (progress) {
        progress = false;
        while (xcb_generic_event_t *event = xcb_poll_for_event(m_connection)) {
            progress = true;
            const auto listeners = std::exchange(m_listeners, {});
            for (const auto &listener : listeners) {
                if (!listener(event))
                    m_listeners.append(listener);
            }
            std::free(event);
        }
        for (qsizetype i = 0; i < m_pending.size(); ++i) {
            void *reply = nullptr;
            xcb_generic_error_t *error = nullptr;
            if (!xcb_poll_for_reply(m_connection, m_pending.at(i).sequence, &reply, &error))
                continue;
            std::free(error);
            const Pending done = m_pending.takeAt(i);
            done.answer(reply);
            std::free(reply);
            progress = true;
            break; // the answer may have sent requests of its own: start over
        }
    }
    xcb_flush(m_connection);
}

void X11Connection::activeWindow(std::function<void(xcb_window_t)> answer)
{
    const auto cookie = xcb_ewmh_get_active_window(&m_ewmh, m_screenNumber);
    whenReplied(cookie.sequence, [answer = std::move(answer)](void *reply) {
        xcb_window_t window = XCB_NONE;
        if (!reply
            || !xcb_ewmh_get_active_window_from_reply(
                &window, static_cast<xcb_get_property_reply_t *>(reply)))
            window = XCB_NONE;
        answer(window);
    });
}

void X11Connection::windowPid(xcb_window_t window, std::function<void(std::optional<quint32>)> answer)
{
    const auto cookie = xcb_ewmh_get_wm_pid(&m_ewmh, window);
    whenReplied(cookie.sequence, [answer = std::move(answer)](void *reply) {
        uint32_t pid = 0;
        if (!reply || !xcb_ewmh_get_wm_pid_from_reply(&pid, static_cast<xcb_get_property_reply_t *>(reply))
            || pid == 0) {
            answer(std::nullopt);
            return;
        }
        answer(pid);
    });
}

void X11Connection::isViewable(xcb_window_t window, std::function<void(bool)> answer)
{
    const auto cookie = xcb_get_window_attributes(m_connection, window);
    whenReplied(cookie.sequence, [answer = std::move(answer)](void *reply) {
        const auto *attributes = static_cast<xcb_get_window_attributes_reply_t *>(reply);
        answer(attributes && attributes->map_state == XCB_MAP_STATE_VIEWABLE);
    });
}

void X11Connection::windowClass(xcb_window_t window, std::function<void(std::optional<WindowClass>)> answer)
{
    const auto cookie = xcb_get_property(m_connection, 0, window, XCB_ATOM_WM_CLASS, XCB_ATOM_STRING, 0, 256);
    whenReplied(cookie.sequence, [answer = std::move(answer)](void *reply) {
        auto *property = static_cast<xcb_get_property_reply_t *>(reply);
        if (!property) {
            answer(std::nullopt);
            return;
        }
        // Two NUL-terminated strings: the instance name, then the class.
        const QByteArray value(static_cast<const char *>(xcb_get_property_value(property)),
            xcb_get_property_value_length(property));
        if (value.isEmpty()) {
            answer(std::nullopt);
            return;
        }
        const QList<QByteArray> parts = value.split('\0');
        answer(
            WindowClass { QString::fromLocal8Bit(parts.value(0)), QString::fromLocal8Bit(parts.value(1)) });
    });
}

void X11Connection::serverTime(std::function<void(xcb_timestamp_t)> answer)
{
    // The server stamps every PropertyNotify; touching a property of our own window is
    // the standard way to learn the current server time.
    const xcb_window_t own = m_ownWindow;
    whenEvent([own, answer = std::move(answer)](const xcb_generic_event_t *event) {
        if ((event->response_type & 0x7f) != XCB_PROPERTY_NOTIFY)
            return false;
        const auto *notify = reinterpret_cast<const xcb_property_notify_event_t *>(event);
        if (notify->window != own || notify->atom != XCB_ATOM_WM_NAME)
            return false;
        answer(notify->time);
        return true;
    });
    xcb_change_property(
        m_connection, XCB_PROP_MODE_APPEND, m_ownWindow, XCB_ATOM_WM_NAME, XCB_ATOM_STRING, 8, 0, nullptr);
    xcb_flush(m_connection);
}

void X11Connection::requestActivation(xcb_window_t window)
{
    serverTime([this, window](xcb_timestamp_t time) {
        activeWindow([this, window, time](xcb_window_t current) {
            xcb_ewmh_request_change_active_window(
                &m_ewmh, m_screenNumber, window, XCB_EWMH_CLIENT_SOURCE_TYPE_OTHER, time, current);
            xcb_flush(m_connection);
        });
    });
}
