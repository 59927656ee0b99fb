#pragma once

#include "Platform.h"

#include <QList>

#include <linux/input-event-codes.h>

// Keys as the kernel numbers them, which is how Wayland sessions take typed keys (the
// remote-desktop portal, a virtual keyboard).
namespace EvdevKeys {

// 0 for a key Tessary never types.
inline int code(int keyCode)
{
    switch (keyCode) {
    case Keys::C:
        return KEY_C;
    case Keys::V:
        return KEY_V;
    case Keys::H:
        return KEY_H;
    default:
        return 0;
    }
}

// The modifiers to hold, in the order they go down; copy and paste are Ctrl on Linux.
inline QList<int> modifiers(quint64 flags)
{
    QList<int> codes;
    if (flags & (Keys::Control | Keys::Super))
        codes << KEY_LEFTCTRL;
    if (flags & Keys::Shift)
        codes << KEY_LEFTSHIFT;
    if (flags & Keys::Alt)
        codes << KEY_LEFTALT;
    return codes;
}

} // namespace EvdevKeys
