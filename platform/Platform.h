#pragma once

#include <QString>
#include <QStringList>

#include <functional>
#include <memory>
#include <optional>

class QMimeData;
class QWindow;

// What the rest of the program may ask of the desktop. Each capability is one small
// interface; main() picks the backends once (makePlatform) and hands them down, tests
// hand down the fakes of platform/fake/.
//
// Key codes and modifier flags keep the values the rewrite logic was designed with;
// backends translate them to the windowing system's own.
namespace Keys {
constexpr int H = 4;
constexpr int C = 8;
constexpr int V = 9;
constexpr quint64 Shift = 0x20000;
constexpr quint64 Control = 0x40000;
constexpr quint64 Alt = 0x80000;
constexpr quint64 Super = 0x100000; // copy and paste are synthesized as Ctrl on Linux
} // namespace Keys

// Error codes of accessibility calls; 0 is success, as the log lines print them.
namespace AxError {
constexpr int Success = 0;
constexpr int Failure = -25200;
constexpr int CannotComplete = -25204;
constexpr int AttributeUnsupported = -25205;
constexpr int NoValue = -25212;
} // namespace AxError

struct RunningApplication
{
    qint64 pid = 0;
    QString name; // empty when it has none; callers print "Unknown"
    quint32 window = 0; // the top-level window that was active
    QStringList windowClass; // the window's instance and class names (WM_CLASS)
};

// An accessible object of another application: its bus name and object path. An empty
// path stands for an application window without accessible text (keys still reach it).
struct Element
{
    QString service;
    QString path;
};

// A stretch of an element's text, in the element's own offsets.
struct TextRange
{
    int start = 0;
    int end = 0;
};

struct FocusResult
{
    int error = AxError::Success;
    std::optional<Element> element;
};

// The calls below that take a callback ask another process (the X server, an application
// over the accessibility bus). They never block the window thread: the callback runs
// later on it, or at once, exactly once. Callers keep their own deadline as well, since
// an application may take its time.

class Workspace
{
public:
    virtual ~Workspace() = default;
    // The window that receives keyboard input now, and its application.
    virtual void frontmostApplication(std::function<void(std::optional<RunningApplication>)> done) = 0;
    // Asks the window manager to make the application's window active and reports,
    // within a short bound, whether it really became active.
    virtual void activate(const RunningApplication &app, std::function<void(bool active)> done) = 0;
    // Brings one of our own windows to the front with the keyboard focus.
    virtual void activateSelf(QWindow *window) = 0;
};

// The desktop's accessibility switch, as the accessibility bus reports it.
struct AccessibilityStatus
{
    // Applications put their text on the bus: Replace can write in place.
    bool on = false;
    // The desktop has a switch that Accessibility::turnOn can flip.
    bool switchable = false;
};

class Accessibility
{
public:
    virtual ~Accessibility() = default;
    // Whether the switch is on; asks the bus each time (the user may flip it any time).
    virtual void status(std::function<void(AccessibilityStatus)> done) = 0;
    // Turns the switch on, as the desktop's own accessibility settings would; on is what
    // the bus says afterwards.
    virtual void turnOn(std::function<void(bool on)> done) = 0;
    // The element with the keyboard focus inside app's window in front.
    virtual void focusedElement(const RunningApplication &app, std::function<void(FocusResult)> done) = 0;
    // nullopt when the element has no text to read; empty when nothing is selected.
    virtual void selectedText(const Element &element, std::function<void(std::optional<QString>)> done) = 0;
    // Writes text over the element's selection; answers an AxError code.
    virtual void setSelectedText(
        const Element &element, const QString &text, std::function<void(int error)> done)
        = 0;
    // Where the element's selection is; nullopt when it cannot tell.
    virtual void selectedRange(const Element &element, std::function<void(std::optional<TextRange>)> done)
        = 0;
    // The element's text in range; nullopt when the element has none to read (or is gone).
    virtual void textIn(
        const Element &element, TextRange range, std::function<void(std::optional<QString>)> done)
        = 0;
    // Writes text over range; answers an AxError code.
    virtual void replaceRange(
        const Element &element, TextRange range, const QString &text, std::function<void(int error)> done)
        = 0;
};

class KeySynth
{
public:
    virtual ~KeySynth() = default;
    // Types keyCode with exactly the given modifiers into the frontmost window, once
    // the keys the user is still holding are up; posted is called after the key-up.
    virtual void post(int keyCode, quint64 flags, std::function<void()> posted) = 0;
    // false where this desktop lets no program type into another one.
    virtual bool canType() const { return true; }
};

// Keyboard shortcut grabbed for the whole desktop. The handler gets every key-down of
// the grabbed combination, translated to Keys values, and returns whether it was used.
class KeyboardGrab
{
public:
    virtual ~KeyboardGrab() = default;
    // false when the shortcut cannot be had (another program holds it, no X server). Started
    // all the same where the further shortcuts below can still be had.
    virtual bool start(std::function<bool(int keyCode, quint64 flags)> handler) = 0;
    virtual void stop() = 0;
    // Further shortcuts of the user's choosing, besides Ctrl+Alt+H, while started: each the
    // portable text of a key sequence ("Ctrl+Alt+J"); a press of one calls activated with
    // its index. Replaces the ones set before; an empty list releases them. false where
    // this desktop takes no further shortcut from us; one it cannot have is left out.
    virtual bool setShortcuts(const QStringList &sequences, std::function<void(int index)> activated)
    {
        Q_UNUSED(sequences);
        Q_UNUSED(activated);
        return false;
    }
};

// The CLIPBOARD selection.
class Pasteboard
{
public:
    // Everything the clipboard held, in every format, to be put back later.
    using Snapshot = std::shared_ptr<const QMimeData>;

    virtual ~Pasteboard() = default;
    // Rises whenever the contents change, by us or by anybody else.
    virtual int changeCount() const = 0;
    // The contents are asked of the program that holds them: the answer comes later.
    virtual void string(std::function<void(std::optional<QString>)> done) const = 0;
    virtual void clear() = 0;
    // Puts our own text there, marked so clipboard managers do not keep it.
    virtual void setString(const QString &text) = 0;
    // null when the clipboard holds nothing
    virtual void snapshot(std::function<void(Snapshot)> done) const = 0;
    virtual void restore(const Snapshot &snapshot) = 0;
};

// The PRIMARY selection: what the user last selected anywhere, without copying it.
class PrimarySelection
{
public:
    virtual ~PrimarySelection() = default;
    // The selection's text while app's window holds it; nullopt when another one does.
    virtual void text(const RunningApplication &app, std::function<void(std::optional<QString>)> done) = 0;
    // Takes the selection with text, for a middle click or Shift+Insert to paste.
    virtual void setText(const QString &text) = 0;
};

// Where Tessary cannot hold Ctrl+Alt+H itself, the desktop runs `tessary --trigger` for
// it: a keyboard shortcut in the desktop's own settings, or a line of the compositor's
// configuration that the user adds.
class DesktopShortcut
{
public:
    virtual ~DesktopShortcut() = default;
    // Whether the desktop runs `tessary --trigger` on a shortcut already, whichever key it is.
    virtual bool isBound() const = 0;
    // Whether add() can bind Ctrl+Alt+H from here.
    virtual bool canAdd() const = 0;
    // Binds Ctrl+Alt+H to `tessary --trigger`, beside the user's own shortcuts; a second
    // call adds nothing. done runs later, or at once, on the window thread: with an empty
    // string, or with one sentence saying what went wrong.
    virtual void add(std::function<void(const QString &error)> done) = 0;
    // One sentence on how Ctrl+Alt+H gets bound here.
    virtual QString advice() const = 0;
    // The exact line the user adds to a configuration file; empty where there is none.
    virtual QString configLine() const = 0;
};

struct Platform
{
    std::unique_ptr<Workspace> workspace;
    std::unique_ptr<Accessibility> accessibility;
    std::unique_ptr<KeyboardGrab> keyboardGrab;
    std::unique_ptr<KeySynth> keySynth;
    std::unique_ptr<Pasteboard> pasteboard;
    std::unique_ptr<PrimarySelection> primarySelection;
    // null where the key grab or the shortcuts portal holds Ctrl+Alt+H
    std::unique_ptr<DesktopShortcut> desktopShortcut;
};
