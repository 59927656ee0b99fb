#include "X11KeySynth.h"

#include "Keysyms.h"

#include <QLoggingCategory>
#include <QTimer>

#include <utility>
#include <xcb/xtest.h>

using namespace Qt::StringLiterals;

Q_LOGGING_CATEGORY(lcKeySynth, "tessary.platform.keysynth", QtInfoMsg)

namespace {

// Right after the hotkey the user's fingers are usually still on Ctrl, Alt and H; a
// copy typed now would arrive as Ctrl+Alt+C. Wait for them, but not forever.
constexpr int releaseCheckMs = 10;
constexpr int releaseWaitMs = 1000;

} // namespace

X11KeySynth::X11KeySynth(std::shared_ptr<X11Connection> x11, QObject *parent)
    : QObject(parent)
    , m_x11(std::move(x11))
{
}

void X11KeySynth::post(int keyCode, quint64 flags, std::function<void()> posted)
{
    m_queue.append({ keyCode, flags, std::move(posted) });
    if (m_queue.size() == 1) {
        m_waiting.start();
        waitForReleasedKeys();
    }
}

void X11KeySynth::readKeyboard(std::function<void(const Keyboard &)> answer)
{
    // Three questions at once; the layout is asked afresh each time, since it may have
    // changed (MappingNotify goes to Qt's connection, not ours).
    auto keyboard = std::make_shared<Keyboard>();
    auto missing = std::make_shared<int>(3);
    const auto complete = [keyboard, missing, answer = std::move(answer)] {
        if (--*missing == 0)
            answer(*keyboard);
    };
    xcb_connection_t *connection = m_x11->connection();
    m_x11->whenReplied(xcb_query_keymap(connection).sequence, [keyboard, complete](void *reply) {
        if (const auto *keymap = static_cast<xcb_query_keymap_reply_t *>(reply)) {
            for (int byte = 0; byte < 32; ++byte) {
                for (int bit = 0; bit < 8; ++bit) {
                    if (keymap->keys[byte] & (1 << bit))
                        keyboard->held.append(xcb_keycode_t(byte * 8 + bit));
                }
            }
        }
        complete();
    });
    m_x11->whenReplied(xcb_get_modifier_mapping(connection).sequence, [keyboard, complete](void *reply) {
        if (auto *mapping = static_cast<xcb_get_modifier_mapping_reply_t *>(reply)) {
            const xcb_keycode_t *codes = xcb_get_modifier_mapping_keycodes(mapping);
            for (int i = 0; i < xcb_get_modifier_mapping_keycodes_length(mapping); ++i) {
                if (codes[i] != 0)
                    keyboard->modifiers.append(codes[i]);
            }
        }
        complete();
    });
    const xcb_setup_t *setup = xcb_get_setup(connection);
    const auto layout = xcb_get_keyboard_mapping(
        connection, setup->min_keycode, setup->max_keycode - setup->min_keycode + 1);
    m_x11->whenReplied(layout.sequence, [keyboard, complete](void *reply) {
        if (auto *mapping = static_cast<xcb_get_keyboard_mapping_reply_t *>(reply)) {
            const xcb_keysym_t *keysyms = xcb_get_keyboard_mapping_keysyms(mapping);
            const int count = xcb_get_keyboard_mapping_keysyms_length(mapping);
            keyboard->keysyms = QList<xcb_keysym_t>(keysyms, keysyms + count);
            keyboard->keysymsPerKeycode = mapping->keysyms_per_keycode;
        }
        complete();
    });
}

void X11KeySynth::waitForReleasedKeys()
{
    readKeyboard([this](const Keyboard &keyboard) {
        if (!keyboard.held.isEmpty() && m_waiting.elapsed() < releaseWaitMs) {
            QTimer::singleShot(releaseCheckMs, this, &X11KeySynth::waitForReleasedKeys);
            return;
        }
        // Modifiers still down after the wait would combine with our keys; let them go.
        for (xcb_keycode_t key : keyboard.held) {
            if (keyboard.modifiers.contains(key)) {
                qCDebug(lcKeySynth) << "releasing held modifier" << key;
                fakeKey(key, false);
            }
        }
        const Request request = m_queue.takeFirst();
        send(keyboard, request);
        if (!m_queue.isEmpty()) {
            m_waiting.start();
            QTimer::singleShot(0, this, &X11KeySynth::waitForReleasedKeys);
        }
        // A round trip makes sure the server has taken every event before we report them sent.
        const auto cookie = xcb_get_input_focus(m_x11->connection());
        m_x11->whenReplied(cookie.sequence, [posted = request.posted](void *) {
            if (posted)
                posted();
        });
    });
}

void X11KeySynth::send(const Keyboard &keyboard, const Request &request)
{
    const xcb_keycode_t key = keycodeFor(keyboard, Keysym::forKeyCode(request.keyCode));
    if (key == 0) {
        qCWarning(lcKeySynth) << "no key on this keyboard for" << request.keyCode;
        return;
    }
    quint64 flags = request.flags;
    // Copy and paste are Ctrl+C / Ctrl+V here. Terminals, which take Ctrl+C for an
    // interrupt, are never sent either (the caller reads their selection instead).
    if ((flags & Keys::Super) && (request.keyCode == Keys::C || request.keyCode == Keys::V))
        flags = (flags & ~Keys::Super) | Keys::Control;

    QList<xcb_keycode_t> modifiers;
    const std::pair<quint64, xcb_keysym_t> modifierKeysyms[] = { { Keys::Control, XK_Control_L },
        { Keys::Shift, XK_Shift_L }, { Keys::Alt, XK_Alt_L }, { Keys::Super, XK_Super_L } };
    for (const auto &[flag, keysym] : modifierKeysyms) {
        if (flags & flag) {
            if (const xcb_keycode_t modifier = keycodeFor(keyboard, keysym))
                modifiers.append(modifier);
        }
    }

    qCDebug(lcKeySynth) << "typing key" << key << "with modifiers" << modifiers;
    for (xcb_keycode_t modifier : modifiers)
        fakeKey(modifier, true);
    fakeKey(key, true);
    fakeKey(key, false);
    for (auto it = modifiers.crbegin(); it != modifiers.crend(); ++it)
        fakeKey(*it, false);
    xcb_flush(m_x11->connection());
}

xcb_keycode_t X11KeySynth::keycodeFor(const Keyboard &keyboard, xcb_keysym_t keysym) const
{
    if (keysym == 0 || keyboard.keysymsPerKeycode <= 0)
        return 0;
    const int minKeycode = xcb_get_setup(m_x11->connection())->min_keycode;
    for (qsizetype i = 0; i < keyboard.keysyms.size(); ++i) {
        if (keyboard.keysyms.at(i) == keysym)
            return xcb_keycode_t(minKeycode + i / keyboard.keysymsPerKeycode);
    }
    return 0;
}

void X11KeySynth::fakeKey(xcb_keycode_t keycode, bool press)
{
    xcb_test_fake_input(m_x11->connection(), press ? XCB_KEY_PRESS : XCB_KEY_RELEASE, keycode,
        XCB_CURRENT_TIME, XCB_NONE, 0, 0, 0);
}
