#pragma once

#include <QString>

class QProcessEnvironment;

// What the session says about itself, gathered once at start-up: the environment as it is,
// read nowhere else.
struct SessionFacts
{
    QString qtPlatform; // QGuiApplication::platformName(): "xcb", "wayland", ...
    QString sessionType; // XDG_SESSION_TYPE
    QString currentDesktop; // XDG_CURRENT_DESKTOP, e.g. "KDE", "ubuntu:GNOME", "sway"
    QString swaySocket; // SWAYSOCK: sway's IPC socket, empty outside sway
    // GNOME's portal offers global shortcuts (GNOME 48 on); its description file says so.
    bool gnomePortalShortcuts = false;

    // The variables above from env; the portal's file is for the caller to read.
    static SessionFacts fromEnvironment(const QProcessEnvironment &env, const QString &qtPlatform);
};

// Which mechanism serves each capability on this desktop. Decided once; nothing else in
// the program asks which session it runs in.
struct BackendPlan
{
    enum class Desktop { X11, Plasma, Gnome, Sway, Wlroots, OtherWayland };
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
        DataControl, // read, set and restored in the background, where the compositor lets us
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
