#include "X11PrimarySelection.h"

#include <QClipboard>
#include <QLoggingCategory>

Q_LOGGING_CATEGORY(lcSelection, "tessary.platform.selection", QtInfoMsg)

X11PrimarySelection::X11PrimarySelection(std::shared_ptr<X11Connection> x11, QClipboard *clipboard)
    : m_x11(std::move(x11))
    , m_clipboard(clipboard)
{
}

void X11PrimarySelection::setText(const QString &text)
{
    m_clipboard->setText(text, QClipboard::Selection);
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
    m_x11->convertSelection(XCB_ATOM_PRIMARY, target,
        [target, done = std::move(done)](std::optional<QByteArray> bytes, xcb_atom_t type) {
            if (!bytes || type != target) {
                done(std::nullopt);
                return;
            }
            done(target == XCB_ATOM_STRING ? QString::fromLatin1(*bytes) : QString::fromUtf8(*bytes));
        });
}
