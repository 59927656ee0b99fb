#include "TerminalPaste.h"

#include <QHash>

using namespace Qt::StringLiterals;

namespace {

using Keys = TerminalPaste::Keys;

// Window classes and instance names, lower case, as the terminals set them. The X
// terminals of old bind no Ctrl+Shift+V: there it reaches the job as a control character.
const QHash<QString, Keys> &terminals()
{
    static const QHash<QString, Keys> table {
        { u"xterm"_s, Keys::ShiftInsert },
        { u"uxterm"_s, Keys::ShiftInsert },
        { u"urxvt"_s, Keys::ShiftInsert },
        { u"rxvt"_s, Keys::ShiftInsert },
        { u"urxvt-unicode"_s, Keys::ShiftInsert },
        { u"aterm"_s, Keys::ShiftInsert },
        { u"eterm"_s, Keys::ShiftInsert },
        { u"gnome-terminal"_s, Keys::CtrlShiftV },
        { u"gnome-terminal-server"_s, Keys::CtrlShiftV },
        { u"konsole"_s, Keys::CtrlShiftV },
        { u"yakuake"_s, Keys::CtrlShiftV },
        { u"kitty"_s, Keys::CtrlShiftV },
        { u"alacritty"_s, Keys::CtrlShiftV },
        { u"foot"_s, Keys::CtrlShiftV },
        { u"footclient"_s, Keys::CtrlShiftV },
        { u"tilix"_s, Keys::CtrlShiftV },
        { u"com.gexperts.tilix"_s, Keys::CtrlShiftV },
        { u"xfce4-terminal"_s, Keys::CtrlShiftV },
        { u"terminal"_s, Keys::CtrlShiftV }, // Xfce Terminal's class before 1.0
        { u"terminator"_s, Keys::CtrlShiftV },
        { u"guake"_s, Keys::CtrlShiftV },
        { u"mate-terminal"_s, Keys::CtrlShiftV },
        { u"lxterminal"_s, Keys::CtrlShiftV },
        { u"qterminal"_s, Keys::CtrlShiftV },
        { u"terminology"_s, Keys::CtrlShiftV },
        { u"st"_s, Keys::CtrlShiftV },
        { u"st-256color"_s, Keys::CtrlShiftV },
        { u"sakura"_s, Keys::CtrlShiftV },
        { u"tilda"_s, Keys::CtrlShiftV },
        { u"wezterm"_s, Keys::CtrlShiftV },
        { u"org.wezfurlong.wezterm"_s, Keys::CtrlShiftV },
        { u"kgx"_s, Keys::CtrlShiftV },
        { u"org.gnome.console"_s, Keys::CtrlShiftV },
        { u"org.gnome.ptyxis"_s, Keys::CtrlShiftV },
        { u"cool-retro-term"_s, Keys::CtrlShiftV },
        { u"deepin-terminal"_s, Keys::CtrlShiftV },
        { u"roxterm"_s, Keys::CtrlShiftV },
        { u"lilyterm"_s, Keys::CtrlShiftV },
        { u"termite"_s, Keys::CtrlShiftV },
        { u"blackbox"_s, Keys::CtrlShiftV },
        { u"com.raggesilver.blackbox"_s, Keys::CtrlShiftV },
        { u"contour"_s, Keys::CtrlShiftV },
        { u"ghostty"_s, Keys::CtrlShiftV },
        { u"com.mitchellh.ghostty"_s, Keys::CtrlShiftV },
    };
    return table;
}

} // namespace

QString TerminalPaste::howToPaste() const
{
    return keys == Keys::ShiftInsert ? u"Shift+Insert or the middle button"_s : u"Ctrl+Shift+V"_s;
}

std::optional<TerminalPaste> terminalPaste(const RunningApplication &app)
{
    for (const QString &name : app.windowClass) {
        if (const auto found = terminals().constFind(name.toLower()); found != terminals().cend())
            return TerminalPaste { *found };
    }
    // Windows without a class (some Wayland clients under XWayland) still have a name.
    if (const auto found = terminals().constFind(app.name.toLower()); found != terminals().cend())
        return TerminalPaste { *found };
    return std::nullopt;
}
