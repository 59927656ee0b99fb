#include "KeyboardGrab.h"

#include "Keysyms.h"

#include <QKeySequence>
#include <QLoggingCategory>
#include <QSocketNotifier>

#include <cstdlib>
#include <memory>
#include <xcb/xcb_keysyms.h>

Q_LOGGING_CATEGORY(lcKeyboardGrab, "tessary.keyboardgrab", QtInfoMsg)

namespace {

constexpr quint16 controlMask = XCB_MOD_MASK_CONTROL;
constexpr quint16 shiftMask = XCB_MOD_MASK_SHIFT;

template<typename T> using XcbReply = std::unique_ptr<T, decltype(&std::free)>;

} // namespace

X11KeyboardGrab::X11KeyboardGrab(const QByteArray &displayName, QObject *parent)
    : QObject(parent)
{
    m_connection = xcb_connect(displayName.isEmpty() ? nullptr : displayName.constData(), nullptr);
    if (xcb_connection_has_error(m_connection)) {
        qCWarning(lcKeyboardGrab) << "cannot connect to the X server";
        return;
    }
    m_root = xcb_setup_roots_iterator(xcb_get_setup(m_connection)).data->root;
    m_keySymbols = xcb_key_symbols_alloc(m_connection);
}

X11KeyboardGrab::~X11KeyboardGrab()
{
    stop();
    if (m_keySymbols)
        xcb_key_symbols_free(m_keySymbols);
    xcb_disconnect(m_connection);
}

bool X11KeyboardGrab::start(std::function<bool(int keyCode, quint64 flags)> handler)
{
    if (xcb_connection_has_error(m_connection))
        return false;
    m_handler = std::move(handler);
    readModifierMapping();
    // Another program may hold Ctrl+Alt+H; the user's own shortcuts are taken all the same.
    const bool taken = grab();
    ungrabExtras();
    grabExtras();
    if (!m_notifier) {
        m_notifier = new QSocketNotifier(xcb_get_file_descriptor(m_connection), QSocketNotifier::Read, this);
        connect(m_notifier, &QSocketNotifier::activated, this, &X11KeyboardGrab::readEvents);
    }
    // Events may already be queued on the connection from the replies read above.
    readEvents();
    return taken;
}

void X11KeyboardGrab::stop()
{
    ungrabExtras();
    m_extraSequences.clear();
    m_extraActivated = nullptr;
    ungrab();
    delete m_notifier;
    m_notifier = nullptr;
    m_handler = nullptr;
}

std::pair<int, quint64> X11KeyboardGrab::translate(
    xcb_keycode_t keycode, quint16 state, const ModifierBits &bits)
{
    quint64 flags = 0;
    if (state & shiftMask)
        flags |= Keys::Shift;
    if (state & controlMask)
        flags |= Keys::Control;
    if (bits.alt && (state & bits.alt))
        flags |= Keys::Alt;
    if (bits.super && (state & bits.super))
        flags |= Keys::Super;
    return { keycode == hKeycode ? Keys::H : -1, flags };
}

QList<quint16> X11KeyboardGrab::grabStates(const ModifierBits &bits)
{
    return lockVariants(controlMask | bits.alt, bits);
}

QList<quint16> X11KeyboardGrab::lockVariants(quint16 base, const ModifierBits &bits)
{
    const quint16 locks[] = { XCB_MOD_MASK_LOCK, bits.numLock, bits.scrollLock };
    QList<quint16> states;
    for (int subset = 0; subset < 8; ++subset) {
        quint16 state = base;
        for (int i = 0; i < 3; ++i) {
            if (subset & (1 << i))
                state |= locks[i];
        }
        if (!states.contains(state))
            states.append(state);
    }
    return states;
}

std::pair<quint32, quint16> X11KeyboardGrab::combination(const QString &sequence, const ModifierBits &bits)
{
    const QKeySequence keys = QKeySequence::fromString(sequence, QKeySequence::PortableText);
    if (keys.isEmpty())
        return { 0, 0 };
    const QKeyCombination first = keys[0];
    const Qt::KeyboardModifiers modifiers = first.keyboardModifiers();
    quint16 state = 0;
    if (modifiers & Qt::ShiftModifier)
        state |= shiftMask;
    if (modifiers & Qt::ControlModifier)
        state |= controlMask;
    if (modifiers & Qt::AltModifier)
        state |= bits.alt;
    if (modifiers & Qt::MetaModifier)
        state |= bits.super;
    // A key without Ctrl, Alt or Super would be taken from every application's typing.
    if (!(state & ~shiftMask))
        return { 0, 0 };
    const int key = first.key();
    quint32 keysym = 0;
    if (key > 0x20 && key < 0x7f)
        keysym = quint32(QChar::toLower(char32_t(key))); // Latin-1 keysyms are their characters
    else if (key == Qt::Key_Space)
        keysym = XK_space;
    else if (key >= Qt::Key_F1 && key <= Qt::Key_F12)
        keysym = XK_F1 + quint32(key - Qt::Key_F1);
    return { keysym, keysym ? state : quint16(0) };
}

bool X11KeyboardGrab::setShortcuts(const QStringList &sequences, std::function<void(int index)> activated)
{
    if (xcb_connection_has_error(m_connection))
        return false;
    ungrabExtras();
    m_extraSequences = sequences;
    m_extraActivated = std::move(activated);
    if (m_handler)
        grabExtras();
    return true;
}

void X11KeyboardGrab::grabExtras()
{
    for (int index = 0; index < m_extraSequences.size(); ++index) {
        const auto [keysym, modifiers] = combination(m_extraSequences.at(index), m_bits);
        std::unique_ptr<xcb_keycode_t, decltype(&std::free)> keycodes(
            keysym ? xcb_key_symbols_get_keycode(m_keySymbols, keysym) : nullptr, &std::free);
        if (!keycodes || keycodes.get()[0] == XCB_NO_SYMBOL) {
            qCWarning(lcKeyboardGrab) << "no key for the shortcut" << m_extraSequences.at(index);
            continue;
        }
        const xcb_keycode_t keycode = keycodes.get()[0];
        if (keycode == hKeycode && modifiers == (controlMask | m_bits.alt))
            continue; // Ctrl+Alt+H is the rewrite's own
        QList<xcb_void_cookie_t> cookies;
        for (const quint16 state : lockVariants(modifiers, m_bits)) {
            cookies.append(xcb_grab_key_checked(
                m_connection, 0, m_root, state, keycode, XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC));
        }
        bool refused = false;
        for (const xcb_void_cookie_t cookie : std::as_const(cookies))
            refused = XcbReply<xcb_generic_error_t>(xcb_request_check(m_connection, cookie), &std::free)
                || refused;
        const Extra extra { keycode, modifiers, index };
        if (refused) {
            qCWarning(lcKeyboardGrab)
                << m_extraSequences.at(index) << "is not available: another program holds it";
            for (const quint16 state : lockVariants(modifiers, m_bits))
                xcb_ungrab_key(m_connection, keycode, m_root, state);
            continue;
        }
        m_extras.append(extra);
    }
    xcb_flush(m_connection);
}

void X11KeyboardGrab::ungrabExtras()
{
    if (xcb_connection_has_error(m_connection))
        return;
    for (const Extra &extra : std::as_const(m_extras)) {
        for (const quint16 state : lockVariants(extra.modifiers, m_bits))
            xcb_ungrab_key(m_connection, extra.keycode, m_root, state);
    }
    xcb_flush(m_connection);
    m_extras.clear();
}

bool X11KeyboardGrab::pressedExtra(xcb_keycode_t keycode, quint16 state)
{
    const quint16 held = state & (shiftMask | controlMask | m_bits.alt | m_bits.super);
    for (const Extra &extra : std::as_const(m_extras)) {
        if (extra.keycode == keycode && extra.modifiers == held) {
            if (m_extraActivated)
                m_extraActivated(extra.index);
            return true;
        }
    }
    return false;
}

void X11KeyboardGrab::readModifierMapping()
{
    m_bits = ModifierBits { .alt = 0, .super = 0, .numLock = 0, .scrollLock = 0 };
    XcbReply<xcb_get_modifier_mapping_reply_t> reply(
        xcb_get_modifier_mapping_reply(m_connection, xcb_get_modifier_mapping(m_connection), nullptr),
        &std::free);
    if (!reply) {
        m_bits = ModifierBits {};
        return;
    }
    const xcb_keycode_t *keycodes = xcb_get_modifier_mapping_keycodes(reply.get());
    const int perModifier = reply->keycodes_per_modifier;
    // Shift, Lock and Control are fixed; Alt, Super and the locks live in Mod1..Mod5.
    for (int modifier = 3; modifier < 8; ++modifier) {
        const auto bit = quint16(1 << modifier);
        for (int k = 0; k < perModifier; ++k) {
            const xcb_keycode_t keycode = keycodes[modifier * perModifier + k];
            if (keycode == 0)
                continue;
            for (int column = 0; column < 4; ++column) {
                switch (xcb_key_symbols_get_keysym(m_keySymbols, keycode, column)) {
                case XK_Num_Lock:
                    m_bits.numLock = bit;
                    break;
                case XK_Scroll_Lock:
                    m_bits.scrollLock = bit;
                    break;
                case XK_Alt_L:
                case XK_Alt_R:
                    if (!m_bits.alt)
                        m_bits.alt = bit;
                    break;
                case XK_Super_L:
                case XK_Super_R:
                    if (!m_bits.super)
                        m_bits.super = bit;
                    break;
                default:
                    break;
                }
            }
        }
    }
    // A mapping without an Alt key still has the conventional one.
    if (!m_bits.alt)
        m_bits.alt = XCB_MOD_MASK_1;
    qCDebug(lcKeyboardGrab) << "modifier bits: alt" << m_bits.alt << "super" << m_bits.super << "num lock"
                            << m_bits.numLock << "scroll lock" << m_bits.scrollLock;
}

bool X11KeyboardGrab::grab()
{
    const QList<quint16> states = grabStates(m_bits);
    QList<xcb_void_cookie_t> cookies;
    for (const quint16 state : states) {
        cookies.append(xcb_grab_key_checked(
            m_connection, 0, m_root, state, hKeycode, XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC));
    }
    bool refused = false;
    for (const xcb_void_cookie_t cookie : cookies) {
        if (XcbReply<xcb_generic_error_t> error(xcb_request_check(m_connection, cookie), &std::free); error) {
            refused = true;
            qCDebug(lcKeyboardGrab) << "grab refused, X error" << error->error_code;
        }
    }
    m_grabbedStates = states; // whatever part was granted is released by ungrab()
    if (refused) {
        ungrab();
        return false;
    }
    return true;
}

void X11KeyboardGrab::ungrab()
{
    if (m_grabbedStates.isEmpty() || xcb_connection_has_error(m_connection))
        return;
    for (const quint16 state : std::as_const(m_grabbedStates))
        xcb_ungrab_key(m_connection, hKeycode, m_root, state);
    xcb_flush(m_connection);
    m_grabbedStates.clear();
}

void X11KeyboardGrab::readEvents()
{
    while (XcbReply<xcb_generic_event_t> event { xcb_poll_for_event(m_connection), &std::free }) {
        switch (event->response_type & ~0x80) {
        case XCB_KEY_PRESS: {
            // Auto-repeat arrives as further presses: each one is a request of its own.
            const auto *press = reinterpret_cast<const xcb_key_press_event_t *>(event.get());
            if (pressedExtra(press->detail, press->state))
                break;
            const auto [keyCode, flags] = translate(press->detail, press->state, m_bits);
            if (m_handler && !m_handler(keyCode, flags))
                qCDebug(lcKeyboardGrab) << "grabbed key not used:" << press->detail << press->state;
            break;
        }
        case XCB_MAPPING_NOTIFY: {
            // A new layout or modifier mapping can move Num Lock to another bit; the H
            // position itself never moves.
            auto *notify = reinterpret_cast<xcb_mapping_notify_event_t *>(event.get());
            if (notify->request == XCB_MAPPING_POINTER)
                break;
            xcb_refresh_keyboard_mapping(m_keySymbols, notify);
            // The further shortcuts name keys by their letters, which a new layout may move.
            ungrabExtras();
            readModifierMapping();
            if (m_handler)
                grabExtras();
            if (grabStates(m_bits) == m_grabbedStates)
                break; // keep the grab: releasing it even briefly could lose a press
            ungrab();
            if (!grab())
                qCWarning(lcKeyboardGrab) << "Ctrl+Alt+H could not be taken again after a keyboard change";
            break;
        }
        default:
            break;
        }
    }
    if (xcb_connection_has_error(m_connection)) {
        qCWarning(lcKeyboardGrab) << "lost the connection to the X server; Ctrl+Alt+H no longer works";
        delete m_notifier;
        m_notifier = nullptr;
    }
}
