#include "BackendPlan.h"

#include <QStringList>

using namespace Qt::StringLiterals;

namespace {

using Desktop = BackendPlan::Desktop;

Desktop waylandDesktop(const QString &currentDesktop)
{
    // XDG_CURRENT_DESKTOP is a colon-separated list, most specific first ("ubuntu:GNOME").
    const QStringList names = currentDesktop.toLower().split(u':', Qt::SkipEmptyParts);
    for (const QString &name : names) {
        if (name == u"kde"_s)
            return Desktop::Plasma;
        if (name == u"gnome"_s)
            return Desktop::Gnome;
        if (name == u"sway"_s || name == u"hyprland"_s || name == u"river"_s || name == u"wayfire"_s
            || name == u"labwc"_s || name == u"wlroots"_s)
            return Desktop::Wlroots;
    }
    return Desktop::OtherWayland;
}

} // namespace

BackendPlan planBackends(const SessionFacts &facts)
{
    BackendPlan plan;
    // A Wayland session decides even when Qt itself talks to XWayland: an X grab or XTest
    // there reaches only the other XWayland windows, not the desktop.
    const bool wayland = facts.sessionType == u"wayland"_s
        || (facts.sessionType.isEmpty() && facts.qtPlatform.startsWith(u"wayland"_s));
    if (!wayland)
        return plan;

    plan.desktop = waylandDesktop(facts.currentDesktop);
    const bool sway = facts.currentDesktop.toLower().split(u':').contains(u"sway"_s);

    if (facts.globalShortcutsPortal)
        plan.shortcut = BackendPlan::Shortcut::Portal;
    else if (plan.desktop == Desktop::Gnome)
        plan.shortcut = BackendPlan::Shortcut::GnomeKeybinding;
    else if (plan.desktop == Desktop::Wlroots)
        plan.shortcut = BackendPlan::Shortcut::CompositorBinding;
    else
        plan.shortcut = BackendPlan::Shortcut::None;

    // GNOME's remote-desktop portal asks the user for consent at every start; there the
    // result goes to the clipboard for the user to paste instead.
    if (facts.remoteDesktopPortal && plan.desktop != Desktop::Gnome)
        plan.keySynthesis = BackendPlan::KeySynthesis::RemoteDesktop;
    else if (facts.virtualKeyboard)
        plan.keySynthesis = BackendPlan::KeySynthesis::VirtualKeyboard;
    else
        plan.keySynthesis = BackendPlan::KeySynthesis::None;

    plan.clipboard
        = facts.dataControl ? BackendPlan::Clipboard::DataControl : BackendPlan::Clipboard::PopupOnly;

    if (plan.desktop == Desktop::Plasma)
        plan.placement = BackendPlan::Placement::KWinScript;
    else if (sway)
        plan.placement = BackendPlan::Placement::Swaymsg;
    else
        plan.placement = BackendPlan::Placement::Compositor;
    return plan;
}
