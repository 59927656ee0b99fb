#include "VirtualKeyboardKeySynth.h"

#include "virtual-keyboard-unstable-v1-client-protocol.h"
#include "wayland/EvdevKeys.h"
#include "wayland/WaylandConnection.h"

#include <QDeadlineTimer>
#include <QLoggingCategory>
#include <QTimer>

#include <cstring>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>
#include <wayland-client.h>
#include <xkbcommon/xkbcommon.h>

namespace {

Q_LOGGING_CATEGORY(lcVirtualKeys, "tessary.platform.keys")

// The compositor answers a sync at once; one that does not must not hold the caller up.
constexpr int confirmDeadlineMs = 1000;
// xkbcommon numbers keys as X does: the evdev code plus 8.
constexpr int xkbOffset = 8;

// The compositor maps the keymap from a file; a sealed memory file costs no disk.
int keymapFile(const char *text, size_t size)
{
    const int fd = memfd_create("tessary-keymap", MFD_CLOEXEC | MFD_ALLOW_SEALING);
    if (fd < 0)
        return -1;
    size_t written = 0;
    while (written < size) {
        const ssize_t n = write(fd, text + written, size - written);
        if (n <= 0) {
            close(fd);
            return -1;
        }
        written += size_t(n);
    }
    fcntl(fd, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW | F_SEAL_WRITE | F_SEAL_SEAL);
    return fd;
}

quint32 milliseconds()
{
    return quint32(QDeadlineTimer::current().deadline());
}

} // namespace

std::unique_ptr<VirtualKeyboardKeySynth> VirtualKeyboardKeySynth::open()
{
    std::unique_ptr<WaylandConnection> connection = WaylandConnection::open();
    if (!connection)
        return nullptr;
    const auto bound = connection->bindAll(WantedGlobal { &zwp_virtual_keyboard_manager_v1_interface, 1,
                                               zwp_virtual_keyboard_manager_v1_destroy },
        WantedGlobal { &wl_seat_interface, 1, wl_seat_destroy });
    if (!bound) {
        qCDebug(lcVirtualKeys) << "the compositor offers no virtual keyboard";
        return nullptr;
    }
    const auto [manager, seat] = *bound;

    // Empty names: the layout the session configured (XKB_DEFAULT_LAYOUT and the others),
    // or the system's default.
    xkb_context *context = xkb_context_new(XKB_CONTEXT_NO_FLAGS);
    xkb_keymap *keymap
        = context ? xkb_keymap_new_from_names(context, nullptr, XKB_KEYMAP_COMPILE_NO_FLAGS) : nullptr;
    char *text = keymap ? xkb_keymap_get_as_string(keymap, XKB_KEYMAP_FORMAT_TEXT_V1) : nullptr;
    // The size counts the final NUL, as the compositor's own keymaps do.
    const int fd = text ? keymapFile(text, std::strlen(text) + 1) : -1;
    if (fd < 0) {
        qCWarning(lcVirtualKeys) << "no keymap to give the compositor's virtual keyboard";
        free(text);
        xkb_keymap_unref(keymap);
        xkb_context_unref(context);
        zwp_virtual_keyboard_manager_v1_destroy(manager);
        wl_seat_destroy(seat);
        return nullptr;
    }
    zwp_virtual_keyboard_v1 *keyboard
        = zwp_virtual_keyboard_manager_v1_create_virtual_keyboard(manager, seat);
    // The request carries a duplicate of the descriptor: ours can go at once.
    zwp_virtual_keyboard_v1_keymap(
        keyboard, WL_KEYBOARD_KEYMAP_FORMAT_XKB_V1, fd, uint32_t(std::strlen(text) + 1));
    close(fd);
    free(text);
    zwp_virtual_keyboard_manager_v1_destroy(manager);
    wl_seat_destroy(seat);
    connection->flush();
    return std::unique_ptr<VirtualKeyboardKeySynth>(
        new VirtualKeyboardKeySynth(std::move(connection), keyboard, context, keymap));
}

VirtualKeyboardKeySynth::VirtualKeyboardKeySynth(std::unique_ptr<WaylandConnection> connection,
    zwp_virtual_keyboard_v1 *keyboard, xkb_context *context, xkb_keymap *keymap)
    : m_connection(std::move(connection))
    , m_keyboard(keyboard)
    , m_context(context)
    , m_keymap(keymap)
    , m_state(xkb_state_new(keymap))
{
}

VirtualKeyboardKeySynth::~VirtualKeyboardKeySynth()
{
    for (const Waiting &waiting : m_waiting)
        wl_callback_destroy(waiting.sync);
    zwp_virtual_keyboard_v1_destroy(m_keyboard);
    m_connection->flush();
    xkb_state_unref(m_state);
    xkb_keymap_unref(m_keymap);
    xkb_context_unref(m_context);
}

void VirtualKeyboardKeySynth::post(int keyCode, quint64 flags, std::function<void()> posted)
{
    type(EvdevKeys::code(keyCode), EvdevKeys::modifiers(flags), std::move(posted));
}

void VirtualKeyboardKeySynth::type(int evdevCode, const QList<int> &heldCodes, std::function<void()> posted)
{
    if (evdevCode != 0) {
        for (int modifier : heldCodes)
            send(modifier, true);
        send(evdevCode, true);
        send(evdevCode, false);
        for (auto it = heldCodes.crbegin(); it != heldCodes.crend(); ++it)
            send(*it, false);
    }

    // The keys are typed once the compositor has handled them: it answers the sync after.
    static const wl_callback_listener listener { .done = [](void *data, wl_callback *sync, uint32_t) {
        auto *self = static_cast<VirtualKeyboardKeySynth *>(data);
        for (const Waiting &waiting : self->m_waiting) {
            if (waiting.sync == sync)
                return self->confirmed(waiting.serial);
        }
    } };
    const quint64 serial = ++m_lastSerial;
    wl_callback *sync = wl_display_sync(m_connection->display());
    wl_callback_add_listener(sync, &listener, this);
    m_waiting.push_back({ serial, sync, std::move(posted) });
    m_connection->flush();
    QTimer::singleShot(confirmDeadlineMs, this, [this, serial] { confirmed(serial); });
}

void VirtualKeyboardKeySynth::send(int evdevCode, bool down)
{
    zwp_virtual_keyboard_v1_key(m_keyboard, milliseconds(), uint32_t(evdevCode),
        down ? WL_KEYBOARD_KEY_STATE_PRESSED : WL_KEYBOARD_KEY_STATE_RELEASED);
    // The compositor takes the modifiers from us, not from the keys: without this the
    // application would see a bare C or V.
    const xkb_state_component changed
        = xkb_state_update_key(m_state, evdevCode + xkbOffset, down ? XKB_KEY_DOWN : XKB_KEY_UP);
    if (changed & (XKB_STATE_MODS_EFFECTIVE | XKB_STATE_LAYOUT_EFFECTIVE)) {
        zwp_virtual_keyboard_v1_modifiers(m_keyboard,
            xkb_state_serialize_mods(m_state, XKB_STATE_MODS_DEPRESSED),
            xkb_state_serialize_mods(m_state, XKB_STATE_MODS_LATCHED),
            xkb_state_serialize_mods(m_state, XKB_STATE_MODS_LOCKED),
            xkb_state_serialize_layout(m_state, XKB_STATE_LAYOUT_EFFECTIVE));
    }
}

void VirtualKeyboardKeySynth::confirmed(quint64 serial)
{
    // Syncs are answered in order: the ones before count as answered too.
    while (!m_waiting.empty() && m_waiting.front().serial <= serial) {
        Waiting waiting = std::move(m_waiting.front());
        m_waiting.pop_front();
        wl_callback_destroy(waiting.sync);
        if (waiting.posted)
            waiting.posted();
    }
}
