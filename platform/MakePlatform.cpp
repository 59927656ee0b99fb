#include "MakePlatform.h"

#include "BackendPlan.h"
#include "atspi/AtspiAccessibility.h"
#include "atspi/AtspiWorkspace.h"
#include "clipboard/ClipboardPasteboard.h"
#include "gnome/GnomeKeybindingLoader.h"
#include "kwin/KWinWorkspace.h"
#include "portal/PortalGlobalShortcuts.h"
#include "portal/PortalKeySynth.h"
#include "wayland/DataControlPasteboard.h"
#include "wlroots/CompositorBinding.h"
#include "wlroots/SwayWorkspace.h"
#include "wlroots/VirtualKeyboardKeySynth.h"
#include "x11/KeyboardGrab.h"
#include "x11/X11KeySynth.h"
#include "x11/X11PrimarySelection.h"
#include "x11/X11Workspace.h"

#include <QClipboard>
#include <QCoreApplication>
#include <QFile>
#include <QGuiApplication>
#include <QLoggingCategory>
#include <QProcessEnvironment>

using namespace Qt::StringLiterals;

namespace {

Q_LOGGING_CATEGORY(lcPlatform, "tessary.platform")

class NoKeySynth : public KeySynth
{
public:
    void post(int, quint64, std::function<void()> posted) override
    {
        qCWarning(lcPlatform) << "this session offers no way to type keys into other applications";
        if (posted)
            posted();
    }
    bool canType() const override { return false; }
};

} // namespace

namespace {

// GNOME's portal offers global shortcuts from GNOME 48 on; its description file lists them.
bool gnomePortalHasGlobalShortcuts(const QProcessEnvironment &env)
{
    const QStringList dirs
        = env.value(u"XDG_DATA_DIRS"_s, u"/usr/local/share:/usr/share"_s).split(u':', Qt::SkipEmptyParts);
    for (const QString &dir : dirs) {
        QFile file(dir + u"/xdg-desktop-portal/portals/gnome.portal"_s);
        if (file.open(QIODevice::ReadOnly))
            return file.readAll().contains("org.freedesktop.impl.portal.GlobalShortcuts");
    }
    return false;
}

} // namespace

Platform makePlatform()
{
    const QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    SessionFacts facts = SessionFacts::fromEnvironment(env, QGuiApplication::platformName());
    facts.gnomePortalShortcuts = gnomePortalHasGlobalShortcuts(env);
    const BackendPlan plan = planBackends(facts);
    qCDebug(lcPlatform) << "desktop" << int(plan.desktop) << "shortcut" << int(plan.shortcut) << "keys"
                        << int(plan.keySynthesis);
    Platform platform;
    const bool x11Session = plan.desktop == BackendPlan::Desktop::X11;
    std::shared_ptr<X11Connection> x11 = x11Session ? X11Connection::open() : nullptr;

    if (plan.shortcut == BackendPlan::Shortcut::KeyGrab)
        platform.keyboardGrab = std::make_unique<X11KeyboardGrab>();
    else if (plan.shortcut == BackendPlan::Shortcut::Portal)
        platform.keyboardGrab = std::make_unique<PortalGlobalShortcuts>();
    else if (plan.shortcut == BackendPlan::Shortcut::GnomeKeybinding)
        platform.desktopShortcut = loadGnomeKeybinding(QCoreApplication::applicationFilePath());
    else if (plan.shortcut == BackendPlan::Shortcut::CompositorBinding)
        platform.desktopShortcut = std::make_unique<CompositorBinding>(
            QCoreApplication::applicationFilePath(), plan.desktop == BackendPlan::Desktop::Sway);

    auto accessibility = std::make_unique<AtspiAccessibility>();
    if (x11)
        platform.workspace = std::make_unique<X11Workspace>(x11);
    else if (plan.desktop == BackendPlan::Desktop::Plasma)
        platform.workspace = std::make_unique<KWinWorkspace>();
    else if (plan.placement == BackendPlan::Placement::Swaymsg)
        platform.workspace = std::make_unique<SwayWorkspace>(facts.swaySocket);
    else
        platform.workspace = std::make_unique<AtspiWorkspace>(*accessibility);

    if (x11)
        platform.primarySelection = std::make_unique<X11PrimarySelection>(x11, QGuiApplication::clipboard());
    platform.accessibility = std::move(accessibility);
    // On Wayland QClipboard sees nothing while another program has the focus; where the
    // compositor shares the clipboard with background clients, we read and set it ourselves.
    if (plan.clipboard == BackendPlan::Clipboard::DataControl)
        platform.pasteboard = DataControlPasteboard::open(QGuiApplication::clipboard());
    const bool backgroundClipboard = platform.pasteboard != nullptr;
    if (!platform.pasteboard)
        platform.pasteboard = std::make_unique<ClipboardPasteboard>(QGuiApplication::clipboard(), x11);

    // A typed Ctrl+C or Ctrl+V is only safe where Tessary can also read and set the
    // clipboard from the background: otherwise the copy could not be read, and the paste
    // would put the user's own clipboard over their selection.
    if (x11)
        platform.keySynth = std::make_unique<X11KeySynth>(x11);
    else if (plan.keySynthesis == BackendPlan::KeySynthesis::RemoteDesktop && backgroundClipboard)
        platform.keySynth = std::make_unique<PortalKeySynth>();
    else if (plan.keySynthesis == BackendPlan::KeySynthesis::VirtualKeyboard && backgroundClipboard)
        platform.keySynth = VirtualKeyboardKeySynth::open();
    if (!platform.keySynth)
        platform.keySynth = std::make_unique<NoKeySynth>();
    return platform;
}
