#include "DeliveredKeys.h"

#include "DesktopFixture.h"

#include <QSocketNotifier>
#include <QTest>

#include <cstdlib>
#include <xcb/xinput.h>

using namespace Qt::StringLiterals;

namespace {
constexpr xcb_keycode_t markerKeycode = 50; // Shift_L
}

DeliveredKeys::DeliveredKeys()
    : m_connection(xcb_connect(nullptr, nullptr))
{
    const xcb_query_extension_reply_t *extension = xcb_get_extension_data(m_connection, &xcb_input_id);
    if (!extension || !extension->present)
        return;
    m_opcode = extension->major_opcode;
    std::free(xcb_input_xi_query_version_reply(
        m_connection, xcb_input_xi_query_version(m_connection, 2, 2), nullptr));
    m_root = xcb_setup_roots_iterator(xcb_get_setup(m_connection)).data->root;
    select(m_root, XCB_INPUT_DEVICE_ALL_MASTER, XCB_INPUT_XI_EVENT_MASK_RAW_KEY_PRESS);
    m_notifier
        = std::make_unique<QSocketNotifier>(xcb_get_file_descriptor(m_connection), QSocketNotifier::Read);
    connect(m_notifier.get(), &QSocketNotifier::activated, this, &DeliveredKeys::read);
}

DeliveredKeys::~DeliveredKeys()
{
    m_notifier.reset();
    xcb_disconnect(m_connection);
}

void DeliveredKeys::watch(xcb_window_t topLevel)
{
    m_watched = { topLevel };
    for (qsizetype i = 0; i < m_watched.size(); ++i) {
        auto *reply
            = xcb_query_tree_reply(m_connection, xcb_query_tree(m_connection, m_watched.at(i)), nullptr);
        if (!reply)
            continue;
        const xcb_window_t *children = xcb_query_tree_children(reply);
        m_watched.append(QList<xcb_window_t>(children, children + xcb_query_tree_children_length(reply)));
        std::free(reply);
    }
    for (const xcb_window_t window : std::as_const(m_watched))
        select(window, XCB_INPUT_DEVICE_ALL_MASTER,
            XCB_INPUT_XI_EVENT_MASK_KEY_PRESS | XCB_INPUT_XI_EVENT_MASK_FOCUS_IN
                | XCB_INPUT_XI_EVENT_MASK_FOCUS_OUT);
    presses.clear();
}

bool DeliveredKeys::hasFocus()
{
    auto *reply = xcb_get_input_focus_reply(m_connection, xcb_get_input_focus(m_connection), nullptr);
    const bool focused = reply && m_watched.contains(reply->focus);
    std::free(reply);
    return focused;
}

bool DeliveredKeys::settle()
{
    m_processed.clear();
    Desktop::run(u"xdotool"_s, { u"key"_s, u"shift"_s });
    // Events that arrived while we waited for a reply are already off the socket.
    const auto processed = [this] {
        read();
        return m_processed.contains(markerKeycode);
    };
    [&] { QTRY_VERIFY(processed()); }();
    return processed();
}

void DeliveredKeys::select(xcb_window_t window, quint16 device, quint32 events)
{
    struct
    {
        xcb_input_event_mask_t head;
        uint32_t mask;
    } mask { { device, 1 }, events };
    xcb_input_xi_select_events(m_connection, window, 1, &mask.head);
    xcb_flush(m_connection);
}

void DeliveredKeys::read()
{
    while (xcb_generic_event_t *event = xcb_poll_for_event(m_connection)) {
        const auto *generic = reinterpret_cast<const xcb_ge_generic_event_t *>(event);
        if ((event->response_type & ~0x80) == XCB_GE_GENERIC && generic->extension == m_opcode) {
            if (generic->event_type == XCB_INPUT_KEY_PRESS) {
                const auto *press = reinterpret_cast<const xcb_input_key_press_event_t *>(event);
                if (m_watched.contains(press->event))
                    presses.append(int(press->detail));
            } else if (generic->event_type == XCB_INPUT_FOCUS_OUT
                || generic->event_type == XCB_INPUT_FOCUS_IN) {
                const auto mode = reinterpret_cast<const xcb_input_focus_in_event_t *>(event)->mode;
                if (mode == XCB_INPUT_NOTIFY_MODE_GRAB || mode == XCB_INPUT_NOTIFY_MODE_PASSIVE_GRAB)
                    m_grabbed = true;
                else if (mode == XCB_INPUT_NOTIFY_MODE_UNGRAB || mode == XCB_INPUT_NOTIFY_MODE_PASSIVE_UNGRAB)
                    m_grabbed = false;
            } else if (generic->event_type == XCB_INPUT_RAW_KEY_PRESS) {
                m_processed.append(
                    int(reinterpret_cast<const xcb_input_raw_key_press_event_t *>(event)->detail));
            }
        }
        std::free(event);
    }
}
