#pragma once

#include "Platform.h"

#include <QObject>
#include <QString>

#include <functional>
#include <optional>

// Reads the selection of the window in front and writes over it: through the
// accessibility bus where the application supports it, otherwise through the
// clipboard and a synthesized copy or paste, putting the user's clipboard back after.
//
// Everything runs on the main thread and nothing blocks it: capture answers through a
// callback, replacement returns at once and finishes its paste and restore on timers.
class AccessibilityHelper : public QObject
{
    Q_OBJECT
public:
    using CaptureCallback = std::function<void(const std::optional<QString> &text)>;

    AccessibilityHelper(Workspace &workspace, Accessibility &accessibility, KeySynth &keySynth,
        Pasteboard &pasteboard, QObject *parent = nullptr);
    explicit AccessibilityHelper(Platform &platform, QObject *parent = nullptr);
    ~AccessibilityHelper() override;

    // The selected text of the frontmost application, never empty when present.
    // done is called once, later or at once; a call while a capture is still running
    // shares that capture's answer instead of copying a second time.
    void captureSelectedText(CaptureCallback done);

    // true when the text was set through the accessibility bus or the clipboard
    // fallback was started; false when there is no frontmost application, no focused
    // element, or target (when given) is not the window in front. The text is written
    // only into the window in front at the call: when another one is in front by the
    // time of the paste, or at the call instead of target, nothing is typed and the
    // text is left on the clipboard.
    bool replaceSelectedText(
        const QString &text, const std::optional<RunningApplication> &target = std::nullopt);

private:
    std::optional<QString> selectedTextViaAX();
    void selectedTextViaClipboard();
    void pollClipboard(int pollsLeft);
    void finishCapture(const std::optional<QString> &text);
    void paste(int generation, const RunningApplication &target, const QString &text);
    void leaveOnClipboard(const QString &text, const QString &message);
    void restoreAfterPaste(int generation);

    Workspace &m_workspace;
    Accessibility &m_accessibility;
    KeySynth &m_keySynth;
    Pasteboard &m_pasteboard;

    QList<CaptureCallback> m_captureWaiting;
    Pasteboard::Snapshot m_captureSaved;
    int m_captureChangeCount = 0;

    // The user's own clipboard, held from the first fallback until the last restore,
    // so that quick successive replacements never restore one of our rewrites.
    Pasteboard::Snapshot m_replaceSaved;
    int m_replaceGeneration = 0;
    bool m_restorePending = false;
};
