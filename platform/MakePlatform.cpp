#include "MakePlatform.h"

#include "atspi/AtspiAccessibility.h"
#include "clipboard/ClipboardPasteboard.h"
#include "x11/KeyboardGrab.h"
#include "x11/X11KeySynth.h"
#include "x11/X11PrimarySelection.h"
#include "x11/X11Workspace.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QLoggingCategory>

using namespace Qt::StringLiterals;

namespace {

Q_LOGGING_CATEGORY(lcPlatform, "tessary.platform")

// Sessions without an X server to ask (a pure Wayland session without XWayland): no
// window is known to be in front and no key can be typed, so capture falls back to
// nothing and replacement reports failure instead of pasting blindly.
class NoWorkspace : public Workspace
{
public:
    void frontmostApplication(std::function<void(std::optional<RunningApplication>)> done) override
    {
        done(std::nullopt);
    }
    void activate(const RunningApplication &, std::function<void(bool)> done) override
    {
        if (done)
            done(false);
    }
    void activateSelf(QWindow *) override { }
};

class NoKeySynth : public KeySynth
{
public:
    void post(int, quint64, std::function<void()> posted) override
    {
        qCWarning(lcPlatform) << "this session offers no way to type keys into other applications";
        if (posted)
            posted();
    }
};

} // namespace

Platform makePlatform()
{
    Platform platform;
    if (QGuiApplication::platformName() == u"xcb"_s)
        platform.keyboardGrab = std::make_unique<X11KeyboardGrab>();
    if (auto x11 = X11Connection::open()) {
        platform.workspace = std::make_unique<X11Workspace>(x11);
        platform.keySynth = std::make_unique<X11KeySynth>(x11);
        platform.primarySelection = std::make_unique<X11PrimarySelection>(x11);
    } else {
        platform.workspace = std::make_unique<NoWorkspace>();
        platform.keySynth = std::make_unique<NoKeySynth>();
    }
    platform.accessibility = std::make_unique<AtspiAccessibility>();
    platform.pasteboard = std::make_unique<ClipboardPasteboard>(QGuiApplication::clipboard());
    return platform;
}
