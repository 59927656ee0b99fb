#pragma once

#include "Capture.h"
#include "Platform.h"

#include <QObject>
#include <QString>

#include <chrono>
#include <functional>
#include <optional>

// How long capture and replacement wait for things. Production uses the defaults; tests
// shorten them.
struct TextAccessTimings
{
    int clipboardPolls = 20;
    std::chrono::milliseconds pollPause { 50 };
    std::chrono::milliseconds pasteDelay { 100 };
    std::chrono::milliseconds restoreDelay { 500 };
    // One question to the window system or to an application over the accessibility bus.
    // An application that answers later counts as one that has no answer.
    std::chrono::milliseconds answerDeadline { 500 };
    // Writing over a selection takes an application several calls.
    std::chrono::milliseconds writeDeadline { 2000 };
    // Reading what another program holds on the clipboard, every format of it.
    std::chrono::milliseconds clipboardDeadline { 1500 };
};

// Reads the selection of the window in front and writes over it: through the
// accessibility bus where the application offers the text, from the PRIMARY selection in
// terminals, otherwise through the clipboard and a synthesized copy or paste, putting
// the user's clipboard back after.
//
// Everything runs on the window thread and nothing blocks it: every question to another
// process is answered through a callback, with a deadline after which the sequence goes
// on as if the answer were empty.
class AccessibilityHelper : public QObject
{
    Q_OBJECT
public:
    using CaptureCallback = std::function<void(const Capture &capture)>;
    // written: where the text went; nullopt when it was not written.
    using ReplaceCallback = std::function<void(const std::optional<WrittenPlace> &written)>;
    // How taking a Replace back ended.
    enum class TakeBack {
        Restored, // the original is written back
        NotInFront, // the window written into is not the one in front
        CannotCheck, // the text was pasted: what is there now cannot be read
        Gone, // the element written into has no text to read any more
        Changed, // the text there is no longer the rewrite
        NotWritten, // the application refused the write, or did not answer in time
    };
    Q_ENUM(TakeBack)

    AccessibilityHelper(Workspace &workspace, Accessibility &accessibility, KeySynth &keySynth,
        Pasteboard &pasteboard, PrimarySelection *primarySelection, TextAccessTimings timings = {},
        QObject *parent = nullptr);
    explicit AccessibilityHelper(Platform &platform, QObject *parent = nullptr);
    ~AccessibilityHelper() override;

    // The selection of the window in front (the text never empty when present) and where
    // it came from. done is called once, later or at once; a call while a capture is
    // still running shares that capture's answer instead of copying a second time.
    void captureSelectedText(CaptureCallback done);

    // Records where a text handed to us (over D-Bus) may be written back: the window in
    // front and its focused element, while that same text is selected there.
    void captureHandedText(const QString &text, CaptureCallback done);

    // Writes text over the selection the target was captured from. written says where when
    // the text was set through the accessibility bus or the paste fallback was started;
    // nullopt when target's window is not in front, its element cannot be had, the
    // selection there has changed, or the target is a terminal (the caller copies then).
    // Nothing is ever written into another window: when another one is in front by the
    // time of the paste, nothing is typed and the text is left on the clipboard.
    void replaceSelectedText(const QString &text, const CaptureTarget &target, ReplaceCallback done);
    // Writes original back over rewrite where place says it went, only while the text
    // there is still exactly rewrite and its window is in front. Otherwise nothing is
    // written and original is left on the clipboard. done is called once.
    void takeBack(const QString &original, const QString &rewrite, const WrittenPlace &place,
        std::function<void(TakeBack result)> done);
    // Leaves text for the user to paste: on the clipboard as plain text (a clipboard
    // manager may keep it) and, where the target is a terminal's selection, on PRIMARY as
    // well, which its Shift+Insert and middle button paste.
    void copy(const QString &text, const CaptureTarget &target);
    // Whether a handed text is still what its element has selected, asked before the popup
    // goes; true where it cannot be known yet (Replace looks again in any case).
    void isStillSelected(const CaptureTarget &target, std::function<void(bool selected)> done);

private:
    void selectedTextViaAX(const RunningApplication &app);
    void selectedTextViaPrimary(const RunningApplication &app);
    void sayWhenTheBusIsOff();
    void selectedTextViaClipboard(const std::optional<RunningApplication> &app);
    void pollClipboard(int pollsLeft);
    void pollAgain(int pollsLeft);
    void finishCapture(const Capture &capture);

    void replaceInFront(const QString &text, const CaptureTarget &target,
        const std::optional<RunningApplication> &front, ReplaceCallback done);
    void replaceInElement(const QString &text, const CaptureTarget &target, const RunningApplication &front,
        const FocusResult &focus, ReplaceCallback done);
    void writeElement(const QString &text, const Element &element, const RunningApplication &front,
        bool pasteAllowed, ReplaceCallback done);
    void writeElementAt(const QString &text, const Element &element, const RunningApplication &front,
        bool pasteAllowed, std::optional<TextRange> range, ReplaceCallback done);
    void takeBackInFront(const QString &original, const QString &rewrite, const WrittenPlace &place,
        std::function<void(TakeBack)> done);
    void writeBack(
        const QString &original, const Element &element, TextRange range, std::function<void(TakeBack)> done);
    void pasteFallback(const QString &text, const RunningApplication &front);
    void paste(int generation, const RunningApplication &target, const QString &text);
    // target: where the text was for; a terminal's gets PRIMARY too.
    void leaveOnClipboard(const QString &text, const QString &message, const CaptureTarget &target = {});
    void restoreAfterPaste(int generation);

    // Runs answer with the reply, or with fallback once the deadline passes; only once.
    template<typename T>
    std::function<void(T)> deadline(
        std::chrono::milliseconds wait, T fallback, std::function<void(T)> answer);

    Workspace &m_workspace;
    Accessibility &m_accessibility;
    KeySynth &m_keySynth;
    Pasteboard &m_pasteboard;
    PrimarySelection *m_primarySelection;
    const TextAccessTimings m_timings;

    bool m_saidBusOff = false;
    QList<CaptureCallback> m_captureWaiting;
    CaptureTarget m_captureTarget;
    Pasteboard::Snapshot m_captureSaved;
    int m_captureChangeCount = 0;

    // The user's own clipboard, held from the first fallback until the last restore,
    // so that quick successive replacements never restore one of our rewrites.
    Pasteboard::Snapshot m_replaceSaved;
    int m_replaceGeneration = 0;
    bool m_restorePending = false;
};
