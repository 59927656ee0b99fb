#pragma once

// Keys pressed in a headless GNOME Shell, whose seat has no keyboard of its own.
#include <QDBusInterface>
#include <QStringList>

namespace GnomeShellKeys {

using namespace Qt::StringLiterals;

// The headless seat has no keyboard: a virtual one inside the shell presses the keys of a
// chord ("Control_L+Alt_L+h"), which the shell hands to whoever grabbed it or has the focus.
inline bool pressKeys(const QString &chord)
{
    QStringList keys;
    for (const QString &key : chord.split(u'+'))
        keys.append(u"C.KEY_"_s + key);
    const QString script = uR"(const C = imports.gi.Clutter;
        const keyboard = C.get_default_backend().get_default_seat()
            .create_virtual_device(C.InputDeviceType.KEYBOARD_DEVICE);
        const keys = [%1], time = global.get_current_time() * 1000;
        keys.forEach(key => keyboard.notify_keyval(time, key, C.KeyState.PRESSED));
        keys.reverse().forEach(key => keyboard.notify_keyval(time, key, C.KeyState.RELEASED));)"_s.arg(
        keys.join(u", "_s));
    QDBusInterface shell(u"org.gnome.Shell"_s, u"/org/gnome/Shell"_s, u"org.gnome.Shell"_s);
    return shell.call(u"Eval"_s, script).arguments().value(0).toBool();
}

} // namespace GnomeShellKeys
