#include "PopupViewModel.h"

#include "FailureAdvice.h"
#include "Log.h"
#include "PopupHost.h"
#include "Rewriter.h"

#include <QPointer>
#include <QTextBoundaryFinder>
#include <QTimer>

#include <memory>
#include <optional>
#include <utility>

using namespace Qt::StringLiterals;

namespace {

constexpr Log::Literal tag = u"PopupView";
constexpr int returnDelayMs = 100;
constexpr int replaceDelayMs = 200;

// What the user sees as characters: an emoji with modifiers counts once.
qsizetype graphemeCount(const QString &text)
{
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text);
    qsizetype count = 0;
    while (finder.toNextBoundary() != -1)
        ++count;
    return count;
}

void logReplaceResult(bool replaced)
{
    Log::write(u"🔄", tag, { u"Replace result: ", replaced });
}

// The replacement after the popup has closed. It holds only the text, so it finishes
// even when the popup and its model are gone. The text is written only into the
// window the popup was opened over: when that window cannot be brought back, the
// text is left on the clipboard instead of being typed somewhere else.
void returnAndReplace(PopupHost *host, const QString &text)
{
    struct Pending
    {
        bool delayOver = false;
        std::optional<bool> returned;
    };
    auto pending = std::make_shared<Pending>();
    auto finish = [host, text, pending] {
        if (!pending->delayOver || !pending->returned)
            return;
        if (*pending->returned) {
            host->replaceSelectedText(text, logReplaceResult);
            return;
        }
        host->copyToClipboard(text);
        Log::write(
            u"❌", tag, u"Not replacing: the previous window is not in front, the text is on the clipboard");
        logReplaceResult(false);
    };
    host->returnToPreviousApp([pending, finish](bool returned) {
        pending->returned = returned;
        finish();
    });
    QTimer::singleShot(replaceDelayMs, [pending, finish] {
        pending->delayOver = true;
        finish();
    });
}

} // namespace

PopupViewModel::PopupViewModel(const QString &originalText, Rewriter &rewriter, PopupHost *host,
    std::chrono::milliseconds stallDelay, QObject *parent)
    : QObject(parent)
    , m_originalText(originalText)
    , m_rewriter(rewriter)
    , m_host(host)
    , m_selectedTone(toneNames().first())
{
    m_stallTimer.setSingleShot(true);
    m_stallTimer.setInterval(stallDelay);
    connect(&m_stallTimer, &QTimer::timeout, this, [this] { setStalled(true); });
    if (m_originalText.isEmpty())
        setState(State::Notice, noTextMessage());
}

PopupViewModel::PopupViewModel(
    const QString &originalText, Rewriter &rewriter, PopupHost *host, QObject *parent)
    : PopupViewModel(originalText, rewriter, host, defaultStallDelay, parent)
{
}

PopupViewModel::~PopupViewModel()
{
    stop();
}

const QStringList &PopupViewModel::toneNames()
{
    static const QStringList names { u"natural"_s, u"casual"_s, u"professional"_s, u"punchy"_s, u"warm"_s };
    return names;
}

QString PopupViewModel::noTextMessage()
{
    return tr("Nothing to rewrite: select some text in any window, then press Ctrl+Alt+H.");
}

QString PopupViewModel::originalPreview() const
{
    if (m_originalText.size() <= previewLength)
        return m_originalText;
    // Never cut between the halves of a surrogate pair.
    qsizetype end = previewLength;
    if (m_originalText.at(end - 1).isHighSurrogate())
        --end;
    return m_originalText.first(end) + u"…"_s;
}

bool PopupViewModel::canRetry() const
{
    // A quiet stream can be given up on at once, without waiting for its timeout.
    return !m_originalText.isEmpty() && m_state != State::Notice && (!isBusy() || m_stalled);
}

bool PopupViewModel::canCopy() const
{
    // After an error the partial text is not shown, so it is not offered either.
    return m_state == State::Done && !m_resultText.isEmpty();
}

void PopupViewModel::run()
{
    if (m_state == State::Notice)
        return;
    stop();
    setState(State::Loading);
    if (!m_resultText.isEmpty()) {
        m_resultText.clear();
        Q_EMIT resultTextChanged();
        Q_EMIT actionsChanged();
    }

    // The callbacks may outlive the popup; a gone model ignores them.
    QPointer<PopupViewModel> self(this);
    RewriteCallbacks callbacks;
    callbacks.onToken = [self](const QString &fragment) {
        if (self)
            self->appendFragment(fragment);
    };
    callbacks.onComplete = [self] {
        if (self)
            self->setState(State::Done);
    };
    callbacks.onError = [self](const QString &message) {
        if (self)
            self->setState(State::Error, message);
    };
    m_request = m_rewriter.humanize(m_originalText, m_selectedTone, std::move(callbacks));
    if (isBusy())
        m_stallTimer.start();
}

void PopupViewModel::stop()
{
    m_stallTimer.stop();
    setStalled(false);
    if (const std::shared_ptr<RewriteRequest> request = std::exchange(m_request, nullptr))
        request->drop();
}

void PopupViewModel::selectTone(const QString &tone)
{
    if (m_selectedTone != tone) {
        m_selectedTone = tone;
        Q_EMIT selectedToneChanged();
    }
    if (!m_originalText.isEmpty())
        run();
}

void PopupViewModel::copy()
{
    if (m_host)
        m_host->copyToClipboard(m_resultText);
}

bool PopupViewModel::offersSettings() const
{
    return FailureAdvice::pointsToSettings(errorMessage());
}

void PopupViewModel::openSettings()
{
    if (m_host)
        m_host->openSettings();
}

void PopupViewModel::replace(std::function<void()> closeWindow)
{
    const QString text = m_resultText;
    Log::write(u"🔄", tag, { u"Replace called with text length: ", graphemeCount(text) });
    if (!m_host) {
        if (closeWindow)
            closeWindow();
        return;
    }
    if (m_replacing)
        return;
    setReplacing(true);
    m_host->checkReplace(
        [self = QPointer(this), text, closeWindow = std::move(closeWindow)](const QString &refusal) {
            if (!self)
                return;
            if (self->m_resultText != text || !refusal.isEmpty())
                self->setReplacing(false); // a Retry replaced the text meanwhile, or it is copied
            if (self->m_resultText != text)
                return;
            if (!refusal.isEmpty()) {
                // The popup stays open to say where the text went.
                self->copy();
                self->m_replaceNote = refusal;
                Q_EMIT self->noteChanged();
                return;
            }
            Q_EMIT self->replaceStarted();
            if (closeWindow)
                closeWindow();
            if (PopupHost *host = self->m_host)
                QTimer::singleShot(returnDelayMs, [host, text] { returnAndReplace(host, text); });
        });
}

void PopupViewModel::setReplacing(bool replacing)
{
    m_replacing = replacing;
    Q_EMIT actionsChanged();
}

void PopupViewModel::replace()
{
    replace([this] { Q_EMIT closeRequested(); });
}

void PopupViewModel::takeText(const QString &text)
{
    m_originalText = text;
    Q_EMIT originalTextChanged();
    setState(State::Loading);
    run();
}

void PopupViewModel::showNotice(const QString &message)
{
    stop();
    setState(State::Notice, message);
}

void PopupViewModel::setState(State state, const QString &message)
{
    // Every error is announced, even a second one with the same message.
    if (m_state == state && state != State::Error && state != State::Notice)
        return;
    const bool wasBusy = isBusy();
    m_state = state;
    m_message = message;
    if (!isBusy())
        m_stallTimer.stop();
    Q_EMIT stateChanged();
    if (m_stalled && !isBusy())
        setStalled(false);
    else if (wasBusy != isBusy() || state == State::Done || state == State::Notice)
        Q_EMIT actionsChanged();
}

void PopupViewModel::appendFragment(const QString &fragment)
{
    if (m_state == State::Loading)
        setState(State::Streaming);
    if (isBusy())
        m_stallTimer.start();
    setStalled(false);
    const bool wasEmpty = m_resultText.isEmpty();
    m_resultText += fragment;
    Q_EMIT resultTextChanged();
    if (wasEmpty != m_resultText.isEmpty())
        Q_EMIT actionsChanged();
}

void PopupViewModel::setStalled(bool stalled)
{
    if (m_stalled == stalled)
        return;
    m_stalled = stalled;
    Q_EMIT actionsChanged();
    Q_EMIT noteChanged();
}

QString PopupViewModel::note() const
{
    if (m_stalled)
        return tr("No reply for a few seconds. Retry, or keep waiting.");
    return m_replaceNote;
}
