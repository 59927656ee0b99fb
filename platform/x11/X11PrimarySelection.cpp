#include "X11PrimarySelection.h"

#include <QLoggingCategory>

Q_LOGGING_CATEGORY(lcSelection, "tessary.platform.selection", QtInfoMsg)

namespace {
// Longer selections come in increments (INCR); a rewrite of that size is refused anyway.
constexpr uint32_t maxSelectionLongs = 1 << 20;
} // namespace

X11PrimarySelection::X11PrimarySelection(std::shared_ptr<X11Connection> x11)
    : m_x11(std::move(x11))
{
}

void X11PrimarySelection::text(
    const RunningApplication &app, std::function<void(std::optional<QString>)> done)
{
    // Only the window in front's own selection: text the user selected somewhere else
    // earlier must not pass for the terminal's.
    const auto cookie = xcb_get_selection_owner(m_x11->connection(), XCB_ATOM_PRIMARY);
    m_x11->whenReplied(
        cookie.sequence, [this, window = xcb_window_t(app.window), done = std::move(done)](void *reply) {
            const auto *owner = static_cast<xcb_get_selection_owner_reply_t *>(reply);
            if (!owner || !m_x11->sameClient(owner->owner, window)) {
                qCDebug(lcSelection) << "PRIMARY is held by another program";
                done(std::nullopt);
                return;
            }
            convert(m_x11->ewmh()->UTF8_STRING, [this, done](std::optional<QString> text) {
                if (text) {
                    done(text);
                    return;
                }
                convert(XCB_ATOM_STRING, done); // programs from before UTF-8
            });
        });
}

void X11PrimarySelection::convert(xcb_atom_t target, std::function<void(std::optional<QString>)> done)
{
    xcb_connection_t *connection = m_x11->connection();
    const xcb_window_t own = m_x11->ownWindow();
    const xcb_atom_t property = m_x11->selectionProperty();
    m_x11->whenEvent(
        [this, connection, own, property, target, done = std::move(done)](const xcb_generic_event_t *event) {
            if ((event->response_type & 0x7f) != XCB_SELECTION_NOTIFY)
                return false;
            const auto *notify = reinterpret_cast<const xcb_selection_notify_event_t *>(event);
            if (notify->requestor != own || notify->selection != XCB_ATOM_PRIMARY)
                return false;
            if (notify->property == XCB_NONE) {
                done(std::nullopt);
                return true;
            }
            const auto cookie = xcb_get_property(
                connection, 1, own, property, XCB_GET_PROPERTY_TYPE_ANY, 0, maxSelectionLongs);
            m_x11->whenReplied(cookie.sequence, [target, done](void *reply) {
                auto *value = static_cast<xcb_get_property_reply_t *>(reply);
                if (!value || value->type != target || value->format != 8) {
                    done(std::nullopt);
                    return;
                }
                const QByteArray bytes(static_cast<const char *>(xcb_get_property_value(value)),
                    xcb_get_property_value_length(value));
                done(target == XCB_ATOM_STRING ? QString::fromLatin1(bytes) : QString::fromUtf8(bytes));
            });
            return true;
        });
    xcb_convert_selection(connection, own, XCB_ATOM_PRIMARY, target, property, XCB_CURRENT_TIME);
    xcb_flush(connection);
}
