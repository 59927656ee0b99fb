#include "AccessibilityHelper.h"

#include "Log.h"

#include <QMimeData>
#include <QPointer>
#include <QTextBoundaryFinder>
#include <QTimer>

#include <utility>

using namespace Qt::StringLiterals;

namespace {

const QString tag = u"AccessibilityHelper"_s;

constexpr int clipboardPolls = 20;
constexpr int pollPauseMs = 50;
constexpr int pasteDelayMs = 100;
constexpr int restoreDelayMs = 500;
constexpr int logPrefixCharacters = 50;

void logStep(const QString &message)
{
    Log::write(u"🔧"_s, tag, message);
}

// The first characters as the user sees them: an emoji or an accented letter made of
// several code points is never cut in half.
QString firstCharacters(const QString &text, int count)
{
    QTextBoundaryFinder finder(QTextBoundaryFinder::Grapheme, text);
    qsizetype end = 0;
    for (int i = 0; i < count; ++i) {
        const qsizetype next = finder.toNextBoundary();
        if (next < 0)
            break;
        end = next;
    }
    return text.left(end);
}

QString nameOrUnknown(const RunningApplication &app)
{
    return app.name.isEmpty() ? u"Unknown"_s : app.name;
}

bool sameWindow(const RunningApplication &a, const RunningApplication &b)
{
    return a.window == b.window && a.pid == b.pid;
}

} // namespace

AccessibilityHelper::AccessibilityHelper(Workspace &workspace, Accessibility &accessibility,
    KeySynth &keySynth, Pasteboard &pasteboard, QObject *parent)
    : QObject(parent)
    , m_workspace(workspace)
    , m_accessibility(accessibility)
    , m_keySynth(keySynth)
    , m_pasteboard(pasteboard)
{
}

AccessibilityHelper::AccessibilityHelper(Platform &platform, QObject *parent)
    : AccessibilityHelper(
        *platform.workspace, *platform.accessibility, *platform.keySynth, *platform.pasteboard, parent)
{
}

AccessibilityHelper::~AccessibilityHelper() = default;

void AccessibilityHelper::captureSelectedText(CaptureCallback done)
{
    m_captureWaiting.append(std::move(done));
    if (m_captureWaiting.size() > 1)
        return; // joins the capture already under way

    if (const auto text = selectedTextViaAX()) {
        finishCapture(text);
        return;
    }
    selectedTextViaClipboard();
}

std::optional<QString> AccessibilityHelper::selectedTextViaAX()
{
    const auto app = m_workspace.frontmostApplication();
    if (!app)
        return std::nullopt;
    const FocusResult focus = m_accessibility.focusedElement(*app);
    if (focus.error != AxError::Success || !focus.element)
        return std::nullopt;
    auto text = m_accessibility.selectedText(*focus.element);
    if (!text || text->isEmpty())
        return std::nullopt;
    return text;
}

void AccessibilityHelper::selectedTextViaClipboard()
{
    m_captureSaved = m_pasteboard.snapshot();
    m_captureChangeCount = m_pasteboard.changeCount();
    // The clipboard is not emptied first: on X11 that stamps it with a time later than
    // the user's selection, and programs that claim the clipboard with the selection's
    // own time (xterm) are then refused. The copy shows itself by raising the change
    // count, even when it holds the same text as before.
    QPointer<AccessibilityHelper> self(this);
    m_keySynth.post(Keys::C, Keys::Command, [self] {
        if (self)
            QTimer::singleShot(pollPauseMs, self, [self] { self->pollClipboard(clipboardPolls); });
    });
}

void AccessibilityHelper::pollClipboard(int pollsLeft)
{
    if (m_pasteboard.changeCount() != m_captureChangeCount) {
        const auto text = m_pasteboard.string();
        if (text && !text->isEmpty()) {
            finishCapture(text);
            return;
        }
    }
    if (pollsLeft > 1) {
        QTimer::singleShot(pollPauseMs, this, [this, pollsLeft] { pollClipboard(pollsLeft - 1); });
        return;
    }
    finishCapture(std::nullopt);
}

void AccessibilityHelper::finishCapture(const std::optional<QString> &text)
{
    if (m_captureSaved)
        m_pasteboard.restore(std::exchange(m_captureSaved, nullptr));
    const auto waiting = std::exchange(m_captureWaiting, {});
    for (const auto &done : waiting) {
        if (done)
            done(text);
    }
}

bool AccessibilityHelper::replaceSelectedText(
    const QString &text, const std::optional<RunningApplication> &target)
{
    logStep(u"replaceSelectedText called with: "_s + firstCharacters(text, logPrefixCharacters) + u"..."_s);

    const auto app = m_workspace.frontmostApplication();
    if (!app) {
        Log::write(u"❌"_s, tag, u"No frontmost application"_s);
        return false;
    }
    logStep(u"Frontmost app: "_s + nameOrUnknown(*app));
    if (target && !sameWindow(*app, *target)) {
        leaveOnClipboard(text, u"Not replacing: "_s + nameOrUnknown(*target) + u" is not in front"_s);
        return false;
    }

    const FocusResult focus = m_accessibility.focusedElement(*app);
    logStep(u"Focus result: "_s + QString::number(focus.error));
    if (focus.error != AxError::Success || !focus.element) {
        Log::write(u"❌"_s, tag, u"Failed to get focused element"_s);
        return false;
    }

    logStep(u"Got focused element, attempting AX replace..."_s);
    const int setResult = m_accessibility.setSelectedText(*focus.element, text);
    logStep(u"AX replace result: "_s + QString::number(setResult));
    if (setResult == AxError::Success) {
        Log::write(u"✅"_s, tag, u"AX replace successful"_s);
        return true;
    }

    logStep(u"AX failed, using clipboard fallback..."_s);
    // While an earlier fallback still waits to restore, the clipboard holds its rewrite,
    // not the user's contents: keep what that one saved.
    if (!m_restorePending)
        m_replaceSaved = m_pasteboard.snapshot();
    m_restorePending = true;
    const int generation = ++m_replaceGeneration;
    m_pasteboard.setString(text);
    logStep(u"Text set to clipboard"_s);
    QTimer::singleShot(
        pasteDelayMs, this, [this, generation, app = *app, text] { paste(generation, app, text); });
    return true;
}

void AccessibilityHelper::paste(int generation, const RunningApplication &target, const QString &text)
{
    // Ctrl+V goes to whichever window is in front now. If the user has moved on, the
    // rewrite must not land there; it stays on the clipboard for them instead.
    const auto front = m_workspace.frontmostApplication();
    if (!front || !sameWindow(*front, target)) {
        const QString message = u"Not pasting: "_s + nameOrUnknown(target) + u" is no longer in front"_s;
        if (generation == m_replaceGeneration)
            leaveOnClipboard(text, message);
        else // a later replacement has the clipboard now
            Log::write(u"❌"_s, tag, message);
        return;
    }
    logStep(u"Sending ⌘V"_s);
    QPointer<AccessibilityHelper> self(this);
    m_keySynth.post(Keys::V, Keys::Command, [self, generation] {
        if (!self)
            return;
        logStep(u"⌘V sent"_s);
        QTimer::singleShot(restoreDelayMs, self, [self, generation] { self->restoreAfterPaste(generation); });
    });
}

void AccessibilityHelper::restoreAfterPaste(int generation)
{
    // A later fallback is still on its way to its paste; restoring now would make it
    // paste the user's old clipboard. It restores when it is done.
    if (generation != m_replaceGeneration)
        return;
    m_restorePending = false;
    const Pasteboard::Snapshot saved = std::exchange(m_replaceSaved, nullptr);
    if (!saved)
        return;
    m_pasteboard.restore(saved);
    logStep(u"Clipboard restored"_s);
}

void AccessibilityHelper::leaveOnClipboard(const QString &text, const QString &message)
{
    // The text is the user's to paste now: plain, so a clipboard manager keeps it, and
    // no pending restore may take it away again.
    m_restorePending = false;
    m_replaceSaved = nullptr;
    ++m_replaceGeneration;
    auto contents = std::make_shared<QMimeData>();
    contents->setText(text);
    m_pasteboard.restore(contents);
    Log::write(u"❌"_s, tag, message + u", the text is on the clipboard"_s);
}
