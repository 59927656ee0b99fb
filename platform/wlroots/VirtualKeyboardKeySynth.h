#pragma once

#include "Platform.h"

#include <QList>
#include <QObject>

#include <deque>
#include <memory>

class WaylandConnection;
struct wl_callback;
struct wl_seat;
struct xkb_context;
struct xkb_keymap;
struct xkb_state;
struct zwp_virtual_keyboard_v1;

// Ctrl+C and Ctrl+V on wlroots desktops, typed through a keyboard of our own that the
// compositor adds to the seat. It carries the session's whole keymap: toolkits look
// shortcuts up in the keymap of the keyboard that typed them, and find none in a keymap
// that only holds the keys we type.
class VirtualKeyboardKeySynth : public QObject, public KeySynth
{
    Q_OBJECT
public:
    // nullptr without a Wayland display, without the protocol, or without a keymap.
    static std::unique_ptr<VirtualKeyboardKeySynth> open();
    ~VirtualKeyboardKeySynth() override;

    void post(int keyCode, quint64 flags, std::function<void()> posted) override;
    // Any key by its evdev code (KEY_ENTER), with the modifier keys held around it
    // (KEY_LEFTCTRL); posted runs once the compositor has handled them.
    void type(int evdevCode, const QList<int> &heldCodes, std::function<void()> posted = {});

private:
    VirtualKeyboardKeySynth(std::unique_ptr<WaylandConnection> connection, zwp_virtual_keyboard_v1 *keyboard,
        xkb_context *context, xkb_keymap *keymap);
    void send(int evdevCode, bool down);
    void confirmed(quint64 serial);

    std::unique_ptr<WaylandConnection> m_connection;
    zwp_virtual_keyboard_v1 *m_keyboard;
    xkb_context *m_context;
    xkb_keymap *m_keymap;
    // What the compositor has been told is held, so each modifiers request matches the keys.
    xkb_state *m_state;
    struct Waiting
    {
        quint64 serial;
        wl_callback *sync;
        std::function<void()> posted;
    };
    // The callers to tell once the compositor has handled their keys, oldest first.
    std::deque<Waiting> m_waiting;
    quint64 m_lastSerial = 0;
};
