#include "PopupViewModel.h"

#include "Log.h"
#include "PopupHost.h"
#include "Rewriter.h"

#include <QPointer>
#include <QTextBoundaryFinder>
#include <QTimer>

#include <memory>
#include <optional>

using namespace Qt::StringLiterals;

namespace {

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
    Log::write(u"🔄"_s, u"PopupView"_s, u"Replace result: "_s + (replaced ? u"true"_s : u"false"_s));
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
        Log::write(u"❌"_s, u"PopupView"_s,
            u"Not replacing: the previous window is not in front, the text is on the clipboard"_s);
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

PopupViewModel::PopupViewModel(
    const QString &originalText, Rewriter &rewriter, PopupHost *host, QObject *parent)
    : QObject(parent)
    , m_originalText(originalText)
    , m_rewriter(rewriter)
    , m_host(host)
    , m_selectedTone(toneNames().first())
{
}

const QStringList &PopupViewModel::toneNames()
{
    static const QStringList names { u"natural"_s, u"casual"_s, u"professional"_s, u"punchy"_s, u"warm"_s };
    return names;
}

bool PopupViewModel::canRetry() const
{
    return !isBusy();
}

bool PopupViewModel::canCopy() const
{
    return !isBusy() && !m_resultText.isEmpty();
}

void PopupViewModel::run()
{
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
    m_rewriter.humanize(m_originalText, m_selectedTone, std::move(callbacks));
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

void PopupViewModel::replace(std::function<void()> closeWindow)
{
    const QString text = m_resultText;
    Log::write(u"🔄"_s, u"PopupView"_s,
        u"Replace called with text length: "_s + QString::number(graphemeCount(text)));
    if (closeWindow)
        closeWindow();
    if (PopupHost *host = m_host)
        QTimer::singleShot(returnDelayMs, [host, text] { returnAndReplace(host, text); });
}

void PopupViewModel::replace()
{
    replace([this] { Q_EMIT closeRequested(); });
}

void PopupViewModel::setState(State state, const QString &errorMessage)
{
    // Every error is announced, even a second one with the same message.
    if (m_state == state && state != State::Error)
        return;
    const bool wasBusy = isBusy();
    m_state = state;
    m_errorMessage = errorMessage;
    Q_EMIT stateChanged();
    if (wasBusy != isBusy())
        Q_EMIT actionsChanged();
}

void PopupViewModel::appendFragment(const QString &fragment)
{
    if (m_state == State::Loading)
        setState(State::Streaming);
    const bool wasEmpty = m_resultText.isEmpty();
    m_resultText += fragment;
    Q_EMIT resultTextChanged();
    if (wasEmpty != m_resultText.isEmpty())
        Q_EMIT actionsChanged();
}
