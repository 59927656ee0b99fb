#include "BackendPlan.h"

#include <QProcessEnvironment>
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
        if (name == u"sway"_s)
            return Desktop::Sway;
        if (name == u"hyprland"_s || name == u"river"_s || name == u"wayfire"_s || name == u"labwc"_s
            || name == u"wlroots"_s)
            return Desktop::Wlroots;
    }
    return Desktop::OtherWayland;
}

} // namespace

SessionFacts SessionFacts::fromEnvironment(const QProcessEnvironment &env, const QString &qtPlatform)
{
    SessionFacts facts;
    facts.qtPlatform = qtPlatform;
    facts.sessionType = env.value(u"XDG_SESSION_TYPE"_s);
    facts.currentDesktop = env.value(u"XDG_CURRENT_DESKTOP"_s);
    facts.swaySocket = env.value(u"SWAYSOCK"_s);
    return facts;
}

BackendPlan planBackends(const SessionFacts &facts)
{
    BackendPlan plan;
    // A Wayland session decides even when Qt itself talks to XWayland: an X grab or XTest
    // there reaches only the other XWayland windows, not the desktop.
    const bool wayland = facts.sessionType == u"wayland"_s
        || (facts.sessionType.isEmpty() && facts.qtPlatform.startsWith(u"wayland"_s));
    if (!wayland) {
        // Only Qt's own X connection can hold the grab (not an offscreen or VNC platform).
        if (facts.qtPlatform != u"xcb"_s)
            plan.shortcut = BackendPlan::Shortcut::None;
        return plan;
    }

    plan.desktop = waylandDesktop(facts.currentDesktop);
    const bool plasma = plan.desktop == Desktop::Plasma;
    const bool gnome = plan.desktop == Desktop::Gnome;
    const bool wlroots = plan.desktop == Desktop::Sway || plan.desktop == Desktop::Wlroots;
    // What each desktop's own components offer, as these desktops ship them: asking the
    // compositor and the portals would cost round trips before the first window, and a
    // backend whose service turns out to be missing says so when it is first used. A
    // desktop we do not know by name gets the wlroots protocols tried.
    const bool named = !facts.currentDesktop.isEmpty();
    const bool wlrootsProtocols = wlroots || (plan.desktop == Desktop::OtherWayland && named);

    if (plasma || (gnome && facts.gnomePortalShortcuts))
        plan.shortcut = BackendPlan::Shortcut::Portal;
    else if (gnome)
        plan.shortcut = BackendPlan::Shortcut::GnomeKeybinding;
    else if (wlroots)
        plan.shortcut = BackendPlan::Shortcut::CompositorBinding;
    else
        plan.shortcut = BackendPlan::Shortcut::None;

    // GNOME's remote-desktop portal asks the user for consent at every start; there the
    // result goes to the clipboard for the user to paste instead.
    if (plasma)
        plan.keySynthesis = BackendPlan::KeySynthesis::RemoteDesktop;
    else if (wlrootsProtocols)
        plan.keySynthesis = BackendPlan::KeySynthesis::VirtualKeyboard;
    else
        plan.keySynthesis = BackendPlan::KeySynthesis::None;

    plan.clipboard = plasma || wlrootsProtocols ? BackendPlan::Clipboard::DataControl
                                                : BackendPlan::Clipboard::PopupOnly;

    if (plasma)
        plan.placement = BackendPlan::Placement::KWinScript;
    else if (plan.desktop == Desktop::Sway && !facts.swaySocket.isEmpty())
        plan.placement = BackendPlan::Placement::Swaymsg;
    else
        plan.placement = BackendPlan::Placement::Compositor;
    return plan;
}
