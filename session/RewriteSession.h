#pragma once

#include "Capture.h"
#include "Failure.h"

#include <QObject>
#include <QString>
#include <QStringList>
#include <QTimer>

#include <chrono>
#include <memory>
#include <optional>

class AccessibilityHelper;
class Pasteboard;
class Rewriter;
class RewriteRequest;
class StorageManager;
class Workspace;

// One rewrite from capture to its end: the captured text and where it came from, the
// request and its stream, the tone and the result, and what the user does with it
// (Retry, Copy, Replace, Undo). Its popup only shows it and calls it; Replace writes
// only where the text came from.
class RewriteSession : public QObject
{
    Q_OBJECT

public:
    enum class State {
        Capturing, // reading the selection; nothing to show yet
        Refused, // nothing will be rewritten here: message() says why
        Rewriting, // a request is running (hasReply() once a fragment arrived)
        Done,
        Failed, // message() is the failure
        Replacing, // Replace asked: checking the target, then back there and writing
        Replaced, // written where the text came from, or left on the clipboard
    };
    Q_ENUM(State)

    struct Services
    {
        AccessibilityHelper &textAccess;
        Workspace *workspace; // null where the desktop tells nothing about its windows
        Pasteboard &pasteboard;
        Rewriter &rewriter;
        // The user's settings the popup follows (saved instructions, Show changes); null:
        // none are kept, and the popup remembers nothing.
        StorageManager *settings = nullptr;
    };

    // How long things wait. The defaults are what users get; tests shorten the stall.
    struct Timings
    {
        // How long a running reply may stay quiet before the popup says so.
        std::chrono::milliseconds stallDelay { 5000 };
        // From the popup closing to asking for the previous window, and from there to
        // writing: the window manager needs the time to hand the keyboard back.
        std::chrono::milliseconds returnDelay { 100 };
        std::chrono::milliseconds replaceDelay { 200 };
        // The clipboard has no change signal on every desktop: while the session waits
        // for a text the user copies, it looks this often.
        std::chrono::milliseconds clipboardLook { 250 };
    };

    // More than this is not a selection to rewrite: it is refused before anything of it
    // reaches the service or the accessibility bus, keeping only enough to recognise it by.
    static constexpr qsizetype maxTextLength = 100000;
    static constexpr qsizetype previewLength = 280;

    explicit RewriteSession(const Services &services, QObject *parent = nullptr);
    RewriteSession(const Services &services, const Timings &timings, QObject *parent = nullptr);
    ~RewriteSession() override;

    static const QStringList &toneNames();
    static QString noTextMessage();
    static QString tooLongMessage(qsizetype length);

    // Capture: each ends in captured(), once.
    void captureSelectedText();
    void captureHandedText(const QString &text);
    // A capture made elsewhere (a text that was refused before capture, a test's).
    void takeCapture(const Capture &capture);
    // Nothing is rewritten; the popup shows why.
    void refuse(const QString &message);

    // The popup is on screen: the first request starts, once, when there is a text.
    void start();
    // A new request for the same text, in the tone chosen last.
    void retry();
    void selectTone(const QString &tone);
    // A new request with the user's own words ("shorter") instead of the tone; a tone
    // chosen later replaces it. Blank words change nothing.
    void useInstruction(const QString &instruction);
    // Whether the popup marks what the rewrite changed; the next popup starts the same.
    void setShowChanges(bool show);
    // The result onto the clipboard, as the user's own copy.
    void copy();
    // Back to the window the text came from, and the result written over the selection
    // there; where it cannot be, the result waits on the clipboard and note() says so.
    void replace();
    // The failure is fixed in Settings: the popup goes, settingsRequested() asks.
    void openSettings();
    // A newer rewrite takes over: the request stops and the popup goes. A Replace already
    // writing goes on to its end.
    void end();
    // The popup that shows this session; it goes before the session does.
    void setView(std::unique_ptr<QObject> view);

    State state() const { return m_state; }
    bool hasReply() const { return m_hasReply; }
    QString originalText() const { return m_original; }
    QString resultText() const { return m_result; }
    QString selectedTone() const { return m_tone; }
    // The instruction in effect instead of the tone; empty while the tone is.
    QString instruction() const { return m_instruction; }
    QStringList savedInstructions() const;
    bool showChanges() const;
    QString message() const { return m_message; }
    // Why the rewrite failed, and what fixes it; meaningful in Failed only.
    const Failure &failure() const { return m_failure; }
    // A reasoning model's thinking before its answer: shown apart, never the result.
    QString reasoningText() const { return m_reasoning; }
    bool isThinking() const { return m_thinking; }
    // One line under the result: that the reply has gone quiet, or why Replace copied.
    QString note() const;
    bool isStalled() const { return m_stalled; }
    const CaptureTarget &target() const { return m_target; }
    QString applicationName() const;
    // Replace can only copy here (a terminal gets no synthesized paste).
    bool replaceCopies() const;
    // Nothing of a Replace is still on its way; an ended session may go.
    bool isIdle() const { return !m_writing; }
    // The result was written where the text came from.
    bool wasWritten() const { return m_state == State::Replaced && m_written; }
    // Where the result was written, once it was.
    const std::optional<WrittenPlace> &writtenPlace() const { return m_writtenPlace; }

Q_SIGNALS:
    void captured();
    void stateChanged();
    void originalTextChanged();
    void resultTextChanged();
    void selectedToneChanged();
    void instructionChanged();
    void savedInstructionsChanged();
    void showChangesChanged();
    void stalledChanged();
    void reasoningChanged();
    void noteChanged();
    // The popup should close (Replace has begun, or the session ended).
    void closeRequested();
    void settingsRequested();
    // A Replace that outlived the popup is over.
    void idle();
    // A request ended with a result (for the history); `tone` is the instruction when one
    // was in effect.
    void finished(
        const QString &original, const QString &result, const QString &tone, const QString &application);
    // The result is written where the text came from: it may be taken back.
    void replaced();

private:
    void run();
    void stop();
    void setState(State state, const QString &message = {});
    void setOriginal(const QString &text);
    void appendFragment(const QString &fragment);
    void appendReasoning(const QString &fragment);
    void setThinking(bool thinking);
    void setStalled(bool stalled);
    void setNote(const QString &note);
    void checkReplace(std::function<void(const QString &refusal)> done);
    void returnAndReplace(const QString &text);
    void finishReplace(bool written);
    void returnToPreviousApp(std::function<void(bool returned)> done);
    void waitForCopiedText();
    void lookAtClipboard();

    Services m_services;
    const Timings m_timings;
    State m_state = State::Capturing;
    QString m_original;
    CaptureTarget m_target;
    QString m_tone;
    QString m_instruction;
    bool m_showChanges = false; // where no settings keep it
    QString m_result;
    QString m_message;
    Failure m_failure;
    QString m_reasoning;
    bool m_thinking = false;
    QString m_replaceNote;
    bool m_hasReply = false;
    bool m_started = false;
    bool m_stalled = false;
    bool m_writing = false; // past the checks of a Replace, until written or copied
    bool m_written = false;
    std::optional<WrittenPlace> m_writtenPlace;
    std::shared_ptr<RewriteRequest> m_request;
    QTimer m_stallTimer;
    QTimer m_clipboardLook;
    int m_clipboardSeen = 0;
    std::unique_ptr<QObject> m_view;
};
