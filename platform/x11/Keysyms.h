#pragma once

#include "Platform.h"

#include <xcb/xproto.h>

// The keysyms the X11 backends look for, shared by the shortcut grab and key synthesis.
// Values from X11/keysymdef.h, whose macros are kept out of our code.
namespace Keysym {

constexpr xcb_keysym_t ShiftL = 0xffe1;
constexpr xcb_keysym_t ControlL = 0xffe3;
constexpr xcb_keysym_t AltL = 0xffe9;
constexpr xcb_keysym_t AltR = 0xffea;
constexpr xcb_keysym_t SuperL = 0xffeb;
constexpr xcb_keysym_t SuperR = 0xffec;
constexpr xcb_keysym_t NumLock = 0xff7f;
constexpr xcb_keysym_t ScrollLock = 0xff14;

// The letter one of the program's key codes (Keys) types; 0 for codes without one.
constexpr xcb_keysym_t forKeyCode(int keyCode)
{
    switch (keyCode) {
    case Keys::H:
        return 'h';
    case Keys::C:
        return 'c';
    case Keys::V:
        return 'v';
    default:
        return 0;
    }
}

} // namespace Keysym
