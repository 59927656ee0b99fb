#include "Terminals.h"

#include <QSet>

using namespace Qt::StringLiterals;

bool isTerminal(const RunningApplication &app)
{
    // Window classes and instance names, lower case, as the terminals set them.
    static const QSet<QString> terminals { u"xterm"_s, u"uxterm"_s, u"xfce4-terminal"_s, u"gnome-terminal"_s,
        u"gnome-terminal-server"_s, u"konsole"_s, u"yakuake"_s, u"terminator"_s, u"tilix"_s,
        u"com.gexperts.tilix"_s, u"guake"_s, u"mate-terminal"_s, u"lxterminal"_s, u"qterminal"_s,
        u"terminology"_s, u"alacritty"_s, u"kitty"_s, u"urxvt"_s, u"rxvt"_s, u"urxvt-unicode"_s,
        u"st-256color"_s, u"st"_s, u"sakura"_s, u"tilda"_s, u"wezterm"_s, u"org.wezfurlong.wezterm"_s,
        u"foot"_s, u"footclient"_s, u"kgx"_s, u"org.gnome.console"_s, u"org.gnome.ptyxis"_s,
        u"cool-retro-term"_s, u"deepin-terminal"_s, u"eterm"_s, u"aterm"_s, u"roxterm"_s, u"lilyterm"_s,
        u"termite"_s, u"terminal"_s, u"blackbox"_s, u"com.raggesilver.blackbox"_s, u"contour"_s, u"ghostty"_s,
        u"com.mitchellh.ghostty"_s };
    for (const QString &name : app.windowClass) {
        if (terminals.contains(name.toLower()))
            return true;
    }
    // Windows without a class (some Wayland clients under XWayland) still have a name.
    return terminals.contains(app.name.toLower());
}
