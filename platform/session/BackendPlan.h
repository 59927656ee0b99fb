#pragma once

#include <QString>

// What the session offers, gathered once at start-up.
struct SessionFacts
{
    QString qtPlatform; // QGuiApplication::platformName(): "xcb", "wayland", ...
    QString sessionType; // XDG_SESSION_TYPE
    QString currentDesktop; // XDG_CURRENT_DESKTOP, e.g. "KDE", "ubuntu:GNOME", "sway"
    bool globalShortcutsPortal = false;
    bool remoteDesktopPortal = false;
    bool dataControl = false; // the compositor shares the clipboard with background clients
    bool virtualKeyboard = false; // the compositor accepts keys from a client's own keyboard
};

// Which mechanism serves each capability on this desktop. Decided once; nothing else in
// the program asks which session it runs in.
struct BackendPlan
{
    enum class Desktop { X11, Plasma, Gnome, Wlroots, OtherWayland };
    enum class Shortcut {
        KeyGrab, // XGrabKey on the root window
        Portal, // the GlobalShortcuts portal
        GnomeKeybinding, // a custom keybinding in GNOME's settings that runs `tessary --trigger`
        CompositorBinding, // a line in the compositor's config that runs `tessary --trigger`
        None, // the tray menu only
    };
    enum class KeySynthesis { XTest, RemoteDesktop, VirtualKeyboard, None };
    enum class Clipboard {
        Selection, // the X selection through QClipboard
        DataControl, // read, set and restored in the background
        PopupOnly, // only while a Tessary window has the focus
    };
    enum class Placement { X11, KWinScript, Swaymsg, Compositor };

    Desktop desktop = Desktop::X11;
    Shortcut shortcut = Shortcut::KeyGrab;
    KeySynthesis keySynthesis = KeySynthesis::XTest;
    Clipboard clipboard = Clipboard::Selection;
    Placement placement = Placement::X11;

    friend bool operator==(const BackendPlan &, const BackendPlan &) = default;
};

BackendPlan planBackends(const SessionFacts &facts);
