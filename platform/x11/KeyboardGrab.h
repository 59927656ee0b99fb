#pragma once

#include "Platform.h"

#include <QList>
#include <QObject>

#include <utility>
#include <xcb/xcb.h>

class QSocketNotifier;
struct _XCBKeySymbols;

// Ctrl+Alt+H for the whole X session: a passive grab on the root window for the
// physical H key, whatever letter the layout puts there, with every combination of
// the lock modifiers, so Caps Lock or Num Lock being on does not lose the shortcut.
// Runs on its own X connection, read from the event loop.
class X11KeyboardGrab : public QObject, public KeyboardGrab
{
    Q_OBJECT

public:
    // The modifier bits that the server's modifier mapping gives each key; they differ
    // between setups (Num Lock is usually Mod2, but not always).
    struct ModifierBits
    {
        quint16 alt = XCB_MOD_MASK_1;
        quint16 super = XCB_MOD_MASK_4;
        quint16 numLock = XCB_MOD_MASK_2;
        quint16 scrollLock = 0;
    };

    // X keycode of the key at the H position: evdev KEY_H (35) + 8.
    static constexpr xcb_keycode_t hKeycode = 43;

    // displayName: an X display such as ":1"; empty for $DISPLAY.
    explicit X11KeyboardGrab(const QByteArray &displayName = {}, QObject *parent = nullptr);
    ~X11KeyboardGrab() override;

    bool start(std::function<bool(int keyCode, quint64 flags)> handler) override;
    void stop() override;
    bool setShortcuts(const QStringList &sequences, std::function<void(int index)> activated) override;

    // An X key event in the program's own key codes and flags; -1 for keys it has no
    // code for.
    static std::pair<int, quint64> translate(xcb_keycode_t keycode, quint16 state, const ModifierBits &bits);
    // Every modifier state under which the shortcut must still be recognised.
    static QList<quint16> grabStates(const ModifierBits &bits);
    // The same for another combination of modifiers.
    static QList<quint16> lockVariants(quint16 base, const ModifierBits &bits);
    // A key sequence's first combination as an X keysym and modifier state; a keysym of
    // 0 where it has no key or no modifier besides Shift.
    static std::pair<quint32, quint16> combination(const QString &sequence, const ModifierBits &bits);

private:
    void readModifierMapping();
    bool grab();
    void ungrab();
    void readEvents();
    void grabExtras();
    void ungrabExtras();
    bool pressedExtra(xcb_keycode_t keycode, quint16 state);

    // A further shortcut as grabbed: its key, its modifiers without the locks, its index.
    struct Extra
    {
        xcb_keycode_t keycode;
        quint16 modifiers;
        int index;
    };

    xcb_connection_t *m_connection = nullptr;
    _XCBKeySymbols *m_keySymbols = nullptr; // xcb_key_symbols_t
    xcb_window_t m_root = XCB_NONE;
    QSocketNotifier *m_notifier = nullptr;
    std::function<bool(int, quint64)> m_handler;
    ModifierBits m_bits;
    QList<quint16> m_grabbedStates; // empty while nothing is grabbed
    QStringList m_extraSequences;
    std::function<void(int)> m_extraActivated;
    QList<Extra> m_extras; // as grabbed
};
