#include "X11KeySynth.h"

#include "Keysyms.h"

#include <QLoggingCategory>
#include <QSet>
#include <QTimer>

#include <cstdlib>
#include <utility>
#include <xcb/xcb_keysyms.h>
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
    , m_symbols(xcb_key_symbols_alloc(m_x11->connection()))
{
}

X11KeySynth::~X11KeySynth()
{
    if (m_symbols)
        xcb_key_symbols_free(m_symbols);
}

bool X11KeySynth::isTerminal(const WindowClass &windowClass)
{
    static const QSet<QString> terminals { u"xterm"_s, u"uxterm"_s, u"xfce4-terminal"_s, u"gnome-terminal"_s,
        u"gnome-terminal-server"_s, u"konsole"_s, u"yakuake"_s, u"terminator"_s, u"tilix"_s, u"guake"_s,
        u"mate-terminal"_s, u"lxterminal"_s, u"qterminal"_s, u"terminology"_s, u"alacritty"_s, u"kitty"_s,
        u"urxvt"_s, u"rxvt"_s, u"st-256color"_s, u"sakura"_s, u"tilda"_s, u"wezterm"_s,
        u"org.wezfurlong.wezterm"_s, u"foot"_s, u"kgx"_s, u"org.gnome.console"_s, u"org.gnome.ptyxis"_s,
        u"cool-retro-term"_s, u"deepin-terminal"_s };
    return terminals.contains(windowClass.instance.toLower())
        || terminals.contains(windowClass.className.toLower());
}

void X11KeySynth::post(int keyCode, quint64 flags, std::function<void()> posted)
{
    m_queue.append({ keyCode, flags, std::move(posted) });
    if (m_queue.size() == 1) {
        m_waiting.start();
        waitForReleasedKeys();
    }
}

void X11KeySynth::waitForReleasedKeys()
{
    const QList<xcb_keycode_t> held = heldKeys();
    if (!held.isEmpty() && m_waiting.elapsed() < releaseWaitMs) {
        QTimer::singleShot(releaseCheckMs, this, &X11KeySynth::waitForReleasedKeys);
        return;
    }
    // Modifiers still down after the wait would combine with our keys; let them go.
    const QList<xcb_keycode_t> modifiers = modifierKeys();
    for (xcb_keycode_t key : held) {
        if (modifiers.contains(key)) {
            qCDebug(lcKeySynth) << "releasing held modifier" << key;
            fakeKey(key, false);
        }
    }

    const Request request = m_queue.takeFirst();
    send(request);
    if (!m_queue.isEmpty()) {
        m_waiting.start();
        QTimer::singleShot(0, this, &X11KeySynth::waitForReleasedKeys);
    }
    if (request.posted)
        request.posted();
}

void X11KeySynth::send(const Request &request)
{
    // The layout may have changed since the last key (MappingNotify goes to Qt's
    // connection, not ours), so look the keys up afresh.
    if (m_symbols)
        xcb_key_symbols_free(m_symbols);
    m_symbols = xcb_key_symbols_alloc(m_x11->connection());
    const xcb_keycode_t key = keycodeFor(Keysym::forKeyCode(request.keyCode));
    if (key == 0) {
        qCWarning(lcKeySynth) << "no key on this keyboard for" << request.keyCode;
        return;
    }
    quint64 flags = request.flags;
    if ((flags & Keys::Command) && (request.keyCode == Keys::C || request.keyCode == Keys::V)) {
        // Copy and paste are Ctrl+C / Ctrl+V here, Ctrl+Shift+C / V in a terminal.
        flags = (flags & ~Keys::Command) | Keys::Control;
        const xcb_window_t active = m_x11->activeWindow();
        const auto windowClass = active ? m_x11->windowClass(active) : std::nullopt;
        if (windowClass && isTerminal(*windowClass))
            flags |= Keys::Shift;
    }

    QList<xcb_keycode_t> modifiers;
    const std::pair<quint64, xcb_keysym_t> modifierKeysyms[] = { { Keys::Control, XK_Control_L },
        { Keys::Shift, XK_Shift_L }, { Keys::Option, XK_Alt_L }, { Keys::Command, XK_Super_L } };
    for (const auto &[flag, keysym] : modifierKeysyms) {
        if (flags & flag) {
            if (const xcb_keycode_t modifier = keycodeFor(keysym))
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
    // A round trip makes sure the server has taken every event before we report them sent.
    free(xcb_get_input_focus_reply(m_x11->connection(), xcb_get_input_focus(m_x11->connection()), nullptr));
}

QList<xcb_keycode_t> X11KeySynth::heldKeys()
{
    QList<xcb_keycode_t> held;
    xcb_query_keymap_reply_t *reply
        = xcb_query_keymap_reply(m_x11->connection(), xcb_query_keymap(m_x11->connection()), nullptr);
    if (!reply)
        return held;
    for (int byte = 0; byte < 32; ++byte) {
        for (int bit = 0; bit < 8; ++bit) {
            if (reply->keys[byte] & (1 << bit))
                held.append(xcb_keycode_t(byte * 8 + bit));
        }
    }
    free(reply);
    return held;
}

QList<xcb_keycode_t> X11KeySynth::modifierKeys()
{
    QList<xcb_keycode_t> keys;
    xcb_get_modifier_mapping_reply_t *reply = xcb_get_modifier_mapping_reply(
        m_x11->connection(), xcb_get_modifier_mapping(m_x11->connection()), nullptr);
    if (!reply)
        return keys;
    const xcb_keycode_t *codes = xcb_get_modifier_mapping_keycodes(reply);
    const int count = xcb_get_modifier_mapping_keycodes_length(reply);
    for (int i = 0; i < count; ++i) {
        if (codes[i] != 0)
            keys.append(codes[i]);
    }
    free(reply);
    return keys;
}

xcb_keycode_t X11KeySynth::keycodeFor(quint32 keysym)
{
    if (!m_symbols || keysym == 0)
        return 0;
    xcb_keycode_t *codes = xcb_key_symbols_get_keycode(m_symbols, keysym);
    if (!codes)
        return 0;
    const xcb_keycode_t code = codes[0] == XCB_NO_SYMBOL ? 0 : codes[0];
    free(codes);
    return code;
}

void X11KeySynth::fakeKey(xcb_keycode_t keycode, bool press)
{
    xcb_test_fake_input(m_x11->connection(), press ? XCB_KEY_PRESS : XCB_KEY_RELEASE, keycode,
        XCB_CURRENT_TIME, XCB_NONE, 0, 0, 0);
}
