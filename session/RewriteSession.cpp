#include "RewriteSession.h"

#include "AccessibilityHelper.h"
#include "Characters.h"
#include "Log.h"
#include "Rewriter.h"
#include "StorageManager.h"
#include "TerminalPaste.h"

#include <QLocale>
#include <QPointer>

#include <optional>
#include <utility>

using namespace Qt::StringLiterals;

namespace {

void logReplaceResult(bool replaced)
{
    Log::write(u"🔄", u"PopupView", { u"Replace result: ", replaced });
}

} // namespace

RewriteSession::RewriteSession(const Services &services, QObject *parent)
    : RewriteSession(services, Timings {}, parent)
{
}

RewriteSession::RewriteSession(const Services &services, const Timings &timings, QObject *parent)
    : QObject(parent)
    , m_services(services)
    , m_timings(timings)
    , m_tone(toneNames().first())
{
    m_stallTimer.setSingleShot(true);
    m_stallTimer.setInterval(m_timings.stallDelay);
    connect(&m_stallTimer, &QTimer::timeout, this, [this] { setStalled(true); });
    m_clipboardLook.setInterval(m_timings.clipboardLook);
    connect(&m_clipboardLook, &QTimer::timeout, this, &RewriteSession::lookAtClipboard);
    if (StorageManager *settings = m_services.settings) {
        connect(settings, &StorageManager::savedInstructionsChanged, this,
            &RewriteSession::savedInstructionsChanged);
        connect(settings, &StorageManager::showChangesChanged, this, &RewriteSession::showChangesChanged);
    }
}

// The popup reads the session until it is gone.
RewriteSession::~RewriteSession()
{
    m_view.reset();
    stop();
}

const QStringList &RewriteSession::toneNames()
{
    static const QStringList names { u"natural"_s, u"casual"_s, u"professional"_s, u"punchy"_s, u"warm"_s };
    return names;
}

QString RewriteSession::noTextMessage()
{
    return tr("Nothing to rewrite: select some text in any window, then press Ctrl+Alt+H.");
}

QString RewriteSession::tooLongMessage(qsizetype length)
{
    return tr("This text is too long to rewrite: %1 characters, where %2 is the most. Select a shorter part.")
        .arg(QLocale().toString(length), QLocale().toString(maxTextLength));
}

QString RewriteSession::applicationName() const
{
    return nameOrUnknown(m_target.application);
}

bool RewriteSession::replaceCopies() const
{
    return m_target.method == CaptureTarget::Method::Primary;
}

void RewriteSession::setView(std::unique_ptr<QObject> view)
{
    m_view = std::move(view);
}

// Capture

void RewriteSession::captureSelectedText()
{
    m_services.textAccess.captureSelectedText([self = QPointer(this)](const Capture &capture) {
        if (self)
            self->takeCapture(capture);
    });
}

void RewriteSession::captureHandedText(const QString &text)
{
    m_services.textAccess.captureHandedText(text, [self = QPointer(this)](const Capture &capture) {
        if (self)
            self->takeCapture(capture);
    });
}

void RewriteSession::takeCapture(const Capture &capture)
{
    m_target = capture.target;
    const QString text = capture.text.value_or(QString());
    if (text.size() > maxTextLength) {
        setOriginal(Characters::upTo(text, previewLength));
        refuse(tooLongMessage(text.size()));
        Q_EMIT captured();
        return;
    }
    setOriginal(text);
    if (m_target.method == CaptureTarget::Method::Copied)
        waitForCopiedText();
    else if (m_original.isEmpty())
        refuse(noTextMessage());
    Q_EMIT captured();
}

void RewriteSession::setOriginal(const QString &text)
{
    if (m_original == text)
        return;
    m_original = text;
    Q_EMIT originalTextChanged();
}

void RewriteSession::refuse(const QString &message)
{
    stop();
    setState(State::Refused, message);
}

void RewriteSession::waitForCopiedText()
{
    refuse(tr("This application does not share its selection on this desktop: copy the text "
              "(Ctrl+C), and it is rewritten here."));
    // What is on the clipboard already may be what the user means: the first look takes it.
    m_clipboardSeen = -1;
    m_clipboardLook.start();
}

void RewriteSession::lookAtClipboard()
{
    const int changeCount = m_services.pasteboard.changeCount();
    if (changeCount == m_clipboardSeen)
        return;
    m_clipboardSeen = changeCount;
    m_services.pasteboard.string([self = QPointer(this)](const std::optional<QString> &copied) {
        if (!self || !copied || copied->isEmpty() || !self->m_original.isEmpty())
            return;
        self->m_clipboardLook.stop();
        self->setOriginal(*copied);
        self->m_started = true;
        self->run();
    });
}

// The request

void RewriteSession::start()
{
    if (m_started || m_state != State::Capturing || m_original.isEmpty())
        return;
    m_started = true;
    run();
}

void RewriteSession::retry()
{
    if (m_state == State::Refused || m_state == State::Capturing || m_original.isEmpty())
        return;
    run();
}

void RewriteSession::selectTone(const QString &tone)
{
    if (m_tone != tone) {
        m_tone = tone;
        Q_EMIT selectedToneChanged();
    }
    if (!m_instruction.isEmpty()) {
        m_instruction.clear();
        Q_EMIT instructionChanged();
    }
    retry();
}

void RewriteSession::useInstruction(const QString &instruction)
{
    const QString asked = instruction.trimmed();
    if (asked.isEmpty())
        return;
    if (m_instruction != asked) {
        m_instruction = asked;
        Q_EMIT instructionChanged();
    }
    retry();
}

QStringList RewriteSession::savedInstructions() const
{
    if (!m_services.settings)
        return {};
    QStringList saved = m_services.settings->savedInstructions();
    // Rows still being written in Settings are not offered here.
    saved.removeIf([](const QString &instruction) { return instruction.trimmed().isEmpty(); });
    return saved;
}

bool RewriteSession::showChanges() const
{
    return m_services.settings ? m_services.settings->showChanges() : m_showChanges;
}

void RewriteSession::setShowChanges(bool show)
{
    if (m_services.settings) {
        m_services.settings->setShowChanges(show); // announced through the settings
        return;
    }
    if (m_showChanges == show)
        return;
    m_showChanges = show;
    Q_EMIT showChangesChanged();
}

void RewriteSession::run()
{
    stop();
    m_hasReply = false;
    setState(State::Rewriting);
    if (!m_result.isEmpty()) {
        m_result.clear();
        Q_EMIT resultTextChanged();
    }
    setNote({});
    if (!m_reasoning.isEmpty()) {
        m_reasoning.clear();
        Q_EMIT reasoningChanged();
    }

    // The callbacks may outlive the session; a gone session ignores them.
    QPointer<RewriteSession> self(this);
    RewriteCallbacks callbacks;
    callbacks.onToken = [self](const QString &fragment) {
        if (self)
            self->appendFragment(fragment);
    };
    callbacks.onComplete = [self] {
        if (!self)
            return;
        self->setState(State::Done);
        if (!self->m_result.isEmpty())
            Q_EMIT self->finished(self->m_original, self->m_result,
                self->m_instruction.isEmpty() ? self->m_tone : self->m_instruction, self->applicationName());
    };
    callbacks.onError = [self](const Failure &failure) {
        if (!self)
            return;
        self->m_failure = failure;
        self->setState(State::Failed, failure.message);
    };
    callbacks.onReasoning = [self](const QString &fragment) {
        if (self)
            self->appendReasoning(fragment);
    };
    // An instruction takes the place of the tone: the plain tone leaves the words to it.
    const QString tone = m_instruction.isEmpty() ? m_tone : toneNames().first();
    m_request = m_services.rewriter.humanize(m_original, tone, m_instruction, std::move(callbacks));
    if (m_state == State::Rewriting)
        m_stallTimer.start();
}

void RewriteSession::stop()
{
    m_stallTimer.stop();
    setStalled(false);
    if (const std::shared_ptr<RewriteRequest> request = std::exchange(m_request, nullptr))
        request->drop();
}

void RewriteSession::appendReasoning(const QString &fragment)
{
    if (m_state == State::Rewriting)
        m_stallTimer.start(); // thinking is the model at work, not a stall
    setStalled(false);
    m_reasoning += fragment;
    m_thinking = m_state == State::Rewriting && !m_hasReply;
    Q_EMIT reasoningChanged();
}

void RewriteSession::setThinking(bool thinking)
{
    if (m_thinking == thinking)
        return;
    m_thinking = thinking;
    Q_EMIT reasoningChanged();
}

void RewriteSession::appendFragment(const QString &fragment)
{
    setThinking(false);
    if (m_state == State::Rewriting) {
        m_stallTimer.start();
        if (!m_hasReply) {
            m_hasReply = true;
            Q_EMIT stateChanged();
        }
    }
    setStalled(false);
    m_result += fragment;
    Q_EMIT resultTextChanged();
}

void RewriteSession::setState(State state, const QString &message)
{
    // Every failure and refusal is announced, even a second one with the same message.
    if (m_state == state && state != State::Failed && state != State::Refused)
        return;
    m_state = state;
    m_message = message;
    if (m_state != State::Rewriting) {
        m_stallTimer.stop();
        setStalled(false);
        setThinking(false);
    }
    Q_EMIT stateChanged();
}

void RewriteSession::setStalled(bool stalled)
{
    if (m_stalled == stalled)
        return;
    m_stalled = stalled;
    Q_EMIT stalledChanged();
    Q_EMIT noteChanged();
}

void RewriteSession::setNote(const QString &note)
{
    if (m_replaceNote == note)
        return;
    m_replaceNote = note;
    Q_EMIT noteChanged();
}

QString RewriteSession::note() const
{
    if (m_stalled)
        return tr("No reply for a few seconds. Retry, or keep waiting.");
    return m_replaceNote;
}

// The user's actions

void RewriteSession::copy()
{
    m_services.textAccess.copy(m_result, m_target);
}

void RewriteSession::openSettings()
{
    end();
    Q_EMIT settingsRequested();
}

void RewriteSession::end()
{
    stop();
    m_clipboardLook.stop();
    // A Replace still checking its target is given up with the popup it was asked in.
    if (m_state == State::Replacing && !m_writing)
        setState(State::Done);
    Q_EMIT closeRequested();
}

void RewriteSession::replace()
{
    const QString text = m_result;
    Log::write(u"🔄", u"PopupView", { u"Replace called with text length: ", Characters::count(text) });
    // One Replace at a time: a second would write the text twice.
    if (m_state != State::Done || text.isEmpty())
        return;
    setState(State::Replacing);
    checkReplace([self = QPointer(this), text](const QString &refusal) {
        // A Retry or a chip started over meanwhile, or the session ended.
        if (!self || self->m_state != State::Replacing || self->m_result != text)
            return;
        if (!refusal.isEmpty()) {
            // The popup stays open to say where the text went.
            self->copy();
            self->setNote(refusal);
            self->setState(State::Done);
            return;
        }
        self->m_writing = true;
        Q_EMIT self->closeRequested();
        QTimer::singleShot(self->m_timings.returnDelay, self, [self, text] {
            if (self)
                self->returnAndReplace(text);
        });
    });
}

// Why Replace cannot write where the text came from, in one sentence; empty when it can.
// Asked while the popup is still open, so that it can say so.
void RewriteSession::checkReplace(std::function<void(const QString &refusal)> done)
{
    if (m_target.method == CaptureTarget::Method::Primary) {
        const TerminalPaste paste = m_target.application
            ? terminalPaste(*m_target.application).value_or(TerminalPaste {})
            : TerminalPaste {};
        done(tr("Terminals get no synthesized paste: the rewrite is on the clipboard, paste it with %1.")
                 .arg(paste.howToPaste()));
        return;
    }
    if (m_target.method == CaptureTarget::Method::Copied) {
        done(tr("This desktop lets no program type into another: the rewrite is on the clipboard, paste "
                "it with Ctrl+V."));
        return;
    }
    m_services.textAccess.isStillSelected(m_target, [name = applicationName(), done](bool selected) {
        done(selected
                ? QString()
                : tr("The text is no longer selected in %1: the rewrite is on the clipboard.").arg(name));
    });
}

// The text is written only into the window the popup was opened over: when that window
// cannot be brought back, it is left on the clipboard instead of typed somewhere else.
void RewriteSession::returnAndReplace(const QString &text)
{
    struct Pending
    {
        bool delayOver = false;
        std::optional<bool> returned;
    };
    auto pending = std::make_shared<Pending>();
    auto finish = [self = QPointer(this), text, pending] {
        if (!self || !pending->delayOver || !pending->returned)
            return;
        if (!*pending->returned) {
            self->m_services.textAccess.copy(text, self->m_target);
            Log::write(u"❌", u"PopupView",
                u"Not replacing: the previous window is not in front, the text is on the clipboard");
            logReplaceResult(false);
            self->finishReplace(false);
            return;
        }
        self->m_services.textAccess.replaceSelectedText(
            text, self->m_target, [self, text](const std::optional<WrittenPlace> &written) {
                if (!self)
                    return;
                const bool replaced = written.has_value();
                self->m_writtenPlace = written;
                // Where the text may not be written (the selection there has changed, the
                // window is gone), the rewrite is not lost: it waits on the clipboard.
                if (!replaced)
                    self->m_services.textAccess.copy(text, self->m_target);
                logReplaceResult(replaced);
                self->finishReplace(replaced);
            });
    };
    returnToPreviousApp([pending, finish](bool returned) {
        pending->returned = returned;
        finish();
    });
    QTimer::singleShot(m_timings.replaceDelay, this, [pending, finish] {
        pending->delayOver = true;
        finish();
    });
}

void RewriteSession::returnToPreviousApp(std::function<void(bool returned)> done)
{
    if (!m_target.application) {
        Log::write(u"❌", u"AppDelegate", u"No previous app stored");
        done(false);
        return;
    }
    const QString name = applicationName();
    Log::write(u"🎯", u"AppDelegate", { u"Returning to: ", Log::Public(name) });
    if (!m_services.workspace) {
        done(false);
        return;
    }
    m_services.workspace->activate(*m_target.application, [name, done = std::move(done)](bool active) {
        if (!active)
            Log::write(u"❌", u"AppDelegate", { u"Could not bring back: ", Log::Public(name) });
        done(active);
    });
}

void RewriteSession::finishReplace(bool written)
{
    m_written = written;
    m_writing = false;
    setState(State::Replaced);
    if (written)
        Q_EMIT replaced();
    Q_EMIT idle();
}
