#pragma once

#include "Platform.h"

#include <X11/keysym.h>
#include <xcb/xproto.h>

namespace Keysym {

// The letter one of the program's key codes (Keys) types; 0 for codes without one.
constexpr xcb_keysym_t forKeyCode(int keyCode)
{
    switch (keyCode) {
    case Keys::H:
        return XK_h;
    case Keys::C:
        return XK_c;
    case Keys::V:
        return XK_v;
    default:
        return 0;
    }
}

} // namespace Keysym
