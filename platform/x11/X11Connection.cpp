#include "X11Connection.h"

#include <QByteArrayList>
#include <QSocketNotifier>
#include <QTimer>

#include <cstdlib>
#include <utility>
#include <xcb/xcbext.h>

namespace {
// An owner that has not answered by then is not going to.
constexpr int conversionTimeoutMs = 1000;
// Larger contents come in increments (INCR), which we do not read.
constexpr uint32_t maxPropertyLongs = 1 << 22;
} // namespace

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
    const auto intern = [connection](const QByteArray &name) {
        xcb_intern_atom_reply_t *atom = xcb_intern_atom_reply(
            connection, xcb_intern_atom(connection, 0, name.size(), name.constData()), nullptr);
        const xcb_atom_t value = atom ? atom->atom : XCB_NONE;
        std::free(atom);
        return value;
    };
    x11->m_selectionProperty = intern("TESSARY_SELECTION");
    x11->m_clipboard = intern("CLIPBOARD");
    x11->m_incr = intern("INCR");
    x11->m_targets = intern("TARGETS");

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

void X11Connection::convertSelection(xcb_atom_t selection, xcb_atom_t target, Converted answer)
{
    m_conversions.append({ selection, target, std::move(answer) });
    nextConversion();
}

void X11Connection::nextConversion()
{
    if (m_converting || m_conversions.isEmpty())
        return;
    m_converting = true;
    const Conversion conversion = m_conversions.constFirst();
    // Answered once: by the owner, or by the timeout when it does not answer.
    auto finished = std::make_shared<bool>(false);
    const auto finish = [this, finished](std::optional<QByteArray> data, xcb_atom_t type) {
        if (*finished)
            return;
        *finished = true;
        const Conversion done = m_conversions.takeFirst();
        m_converting = false;
        done.answer(std::move(data), type);
        nextConversion();
    };
    QTimer::singleShot(conversionTimeoutMs, this, [finish] { finish(std::nullopt, XCB_NONE); });

    const xcb_window_t own = m_ownWindow;
    const xcb_atom_t property = m_selectionProperty;
    whenEvent([this, own, property, conversion, finished, finish](const xcb_generic_event_t *event) {
        if (*finished)
            return true;
        if ((event->response_type & 0x7f) != XCB_SELECTION_NOTIFY)
            return false;
        const auto *notify = reinterpret_cast<const xcb_selection_notify_event_t *>(event);
        if (notify->requestor != own || notify->selection != conversion.selection
            || notify->target != conversion.target)
            return false;
        if (notify->property == XCB_NONE) {
            finish(std::nullopt, XCB_NONE);
            return true;
        }
        const auto cookie = xcb_get_property(
            m_connection, 1, own, property, XCB_GET_PROPERTY_TYPE_ANY, 0, maxPropertyLongs);
        whenReplied(cookie.sequence, [this, finish](void *reply) {
            auto *value = static_cast<xcb_get_property_reply_t *>(reply);
            if (!value || value->bytes_after > 0 || value->type == m_incr) {
                finish(std::nullopt, value ? m_incr : XCB_NONE);
                return;
            }
            finish(QByteArray(static_cast<const char *>(xcb_get_property_value(value)),
                       xcb_get_property_value_length(value)),
                value->type);
        });
        return true;
    });
    xcb_convert_selection(
        m_connection, own, conversion.selection, conversion.target, property, XCB_CURRENT_TIME);
    xcb_flush(m_connection);
}

void X11Connection::atomName(xcb_atom_t atom, std::function<void(const QString &name)> answer)
{
    if (const auto known = m_atomNames.constFind(atom); known != m_atomNames.cend()) {
        answer(*known);
        return;
    }
    whenReplied(xcb_get_atom_name(m_connection, atom).sequence,
        [this, atom, answer = std::move(answer)](void *reply) {
            auto *name = static_cast<xcb_get_atom_name_reply_t *>(reply);
            const QString text = name
                ? QString::fromLatin1(xcb_get_atom_name_name(name), xcb_get_atom_name_name_length(name))
                : QString();
            if (name)
                m_atomNames.insert(atom, text);
            answer(text);
        });
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
