#include "AccessibilityHelper.h"

#include "Characters.h"
#include "Log.h"
#include "TerminalPaste.h"

#include <QHash>
#include <QLoggingCategory>
#include <QMimeData>
#include <QPointer>
#include <QTimer>

#include <limits>
#include <utility>

using namespace Qt::StringLiterals;

Q_LOGGING_CATEGORY(lcTextAccess, "tessary.textaccess", QtInfoMsg)

namespace {

constexpr Log::Literal tag = u"AccessibilityHelper";
constexpr int logPrefixCharacters = 50;
// What a write that was not answered in time reports: it may still happen later, so
// nothing else may be written over the selection.
constexpr int noAnswer = std::numeric_limits<int>::min();

void logStep(Log::Message message)
{
    Log::write(u"🔧", tag, message);
}

void logStep(Log::Part message)
{
    Log::write(u"🔧", tag, std::move(message));
}

bool sameWindow(const RunningApplication &a, const RunningApplication &b)
{
    return a.window == b.window && a.pid == b.pid;
}

bool sameElement(const Element &a, const Element &b)
{
    return a.service == b.service && a.path == b.path;
}

} // namespace

AccessibilityHelper::AccessibilityHelper(Workspace &workspace, Accessibility &accessibility,
    KeySynth &keySynth, Pasteboard &pasteboard, PrimarySelection *primarySelection, TextAccessTimings timings,
    QObject *parent)
    : QObject(parent)
    , m_workspace(workspace)
    , m_accessibility(accessibility)
    , m_keySynth(keySynth)
    , m_pasteboard(pasteboard)
    , m_primarySelection(primarySelection)
    , m_timings(timings)
{
}

AccessibilityHelper::AccessibilityHelper(Platform &platform, QObject *parent)
    : AccessibilityHelper(*platform.workspace, *platform.accessibility, *platform.keySynth,
        *platform.pasteboard, platform.primarySelection.get(), {}, parent)
{
}

AccessibilityHelper::~AccessibilityHelper() = default;

template<typename T>
std::function<void(T)> AccessibilityHelper::deadline(
    std::chrono::milliseconds wait, T fallback, std::function<void(T)> answer)
{
    auto pending = std::make_shared<std::function<void(T)>>(std::move(answer));
    QTimer::singleShot(wait, this, [pending, fallback] {
        if (auto late = std::exchange(*pending, nullptr)) {
            qCDebug(lcTextAccess) << "no answer in time, going on without it";
            late(fallback);
        }
    });
    return [self = QPointer<AccessibilityHelper>(this), pending](T value) {
        if (!self)
            return;
        if (auto answer = std::exchange(*pending, nullptr))
            answer(std::move(value));
    };
}

// Capture

void AccessibilityHelper::captureSelectedText(CaptureCallback done)
{
    m_captureWaiting.append(std::move(done));
    if (m_captureWaiting.size() > 1)
        return; // joins the capture already under way

    m_workspace.frontmostApplication(deadline<std::optional<RunningApplication>>(
        m_timings.answerDeadline, std::nullopt, [this](std::optional<RunningApplication> app) {
            if (!app)
                selectedTextViaClipboard(std::nullopt);
            else if (isTerminal(*app))
                selectedTextViaPrimary(*app);
            else
                selectedTextViaAX(*app);
        }));
}

void AccessibilityHelper::selectedTextViaAX(const RunningApplication &app)
{
    const FocusResult noFocus { AxError::CannotComplete, std::nullopt };
    m_accessibility.focusedElement(
        app, deadline<FocusResult>(m_timings.answerDeadline, noFocus, [this, app](FocusResult focus) {
            if (focus.error != AxError::Success || !focus.element || focus.element->path.isEmpty()) {
                sayWhenTheBusIsOff();
                selectedTextViaClipboard(app);
                return;
            }
            const Element element = *focus.element;
            m_accessibility.selectedText(element,
                deadline<std::optional<QString>>(m_timings.answerDeadline, std::nullopt,
                    [this, app, element](std::optional<QString> text) {
                        if (!text || text->isEmpty()) {
                            selectedTextViaClipboard(app);
                            return;
                        }
                        finishCapture(
                            { text, { CaptureTarget::Method::Accessibility, app, element, *text } });
                    }));
        }));
}

void AccessibilityHelper::sayWhenTheBusIsOff()
{
    // Said only where capture needed the bus, once until the switch is on; asked beside the
    // copy, which does not wait for the answer.
    if (m_saidBusOff)
        return;
    QPointer<AccessibilityHelper> self(this);
    m_accessibility.status([self](AccessibilityStatus status) {
        if (!self || status.on || std::exchange(self->m_saidBusOff, true))
            return;
        qCInfo(lcTextAccess) << "The accessibility switch is off: the selection is copied with Ctrl+C instead"
                             << "of read. Turning it on (Tessary's Settings show how) lets Replace write in"
                             << "place.";
    });
}

void AccessibilityHelper::selectedTextViaPrimary(const RunningApplication &app)
{
    if (!m_primarySelection) {
        finishCapture({ std::nullopt, { CaptureTarget::Method::None, app, std::nullopt, {} } });
        return;
    }
    m_primarySelection->text(app,
        deadline<std::optional<QString>>(
            m_timings.answerDeadline, std::nullopt, [this, app](std::optional<QString> text) {
                if (!text || text->isEmpty()) {
                    finishCapture({ std::nullopt, { CaptureTarget::Method::None, app, std::nullopt, {} } });
                    return;
                }
                finishCapture({ text, { CaptureTarget::Method::Primary, app, std::nullopt, *text } });
            }));
}

void AccessibilityHelper::selectedTextViaClipboard(const std::optional<RunningApplication> &app)
{
    if (!m_keySynth.canType()) {
        finishCapture({ std::nullopt, { CaptureTarget::Method::Copied, app, std::nullopt, {} } });
        return;
    }
    m_captureTarget = { CaptureTarget::Method::Clipboard, app, std::nullopt, {} };
    // A holder of the clipboard that does not answer in time cannot have it saved: it
    // would not hand it over later either.
    m_pasteboard.snapshot(deadline<Pasteboard::Snapshot>(
        m_timings.clipboardDeadline, nullptr, [this](Pasteboard::Snapshot saved) {
            m_captureSaved = saved;
            m_captureChangeCount = m_pasteboard.changeCount();
            // The clipboard is not emptied first: on X11 that stamps it with a time later
            // than the user's selection, and programs that claim the clipboard with the
            // selection's own time are then refused. The copy shows itself by raising the
            // change count, even when it holds the same text as before.
            QPointer<AccessibilityHelper> self(this);
            m_keySynth.post(Keys::C, Keys::Super, [self] {
                if (self)
                    QTimer::singleShot(self->m_timings.pollPause, self,
                        [self] { self->pollClipboard(self->m_timings.clipboardPolls); });
            });
        }));
}

void AccessibilityHelper::pollClipboard(int pollsLeft)
{
    if (m_pasteboard.changeCount() != m_captureChangeCount) {
        m_pasteboard.string(deadline<std::optional<QString>>(
            m_timings.clipboardDeadline, std::nullopt, [this, pollsLeft](std::optional<QString> text) {
                if (text && !text->isEmpty()) {
                    CaptureTarget target = std::exchange(m_captureTarget, {});
                    target.selected = *text;
                    finishCapture({ text, target });
                    return;
                }
                pollAgain(pollsLeft);
            }));
        return;
    }
    pollAgain(pollsLeft);
}

void AccessibilityHelper::pollAgain(int pollsLeft)
{
    if (pollsLeft > 1) {
        QTimer::singleShot(m_timings.pollPause, this, [this, pollsLeft] { pollClipboard(pollsLeft - 1); });
        return;
    }
    CaptureTarget target = std::exchange(m_captureTarget, {});
    target.method = CaptureTarget::Method::None;
    finishCapture({ std::nullopt, target });
}

void AccessibilityHelper::finishCapture(const Capture &capture)
{
    if (m_captureSaved)
        m_pasteboard.restore(std::exchange(m_captureSaved, nullptr));
    const auto waiting = std::exchange(m_captureWaiting, {});
    for (const auto &done : waiting) {
        if (done)
            done(capture);
    }
}

void AccessibilityHelper::captureHandedText(const QString &text, CaptureCallback done)
{
    const auto answer = [done = std::move(done), text](const std::optional<RunningApplication> &app,
                            const std::optional<Element> &element) {
        if (done)
            done({ text, { CaptureTarget::Method::Handed, app, element, text } });
    };
    m_workspace.frontmostApplication(deadline<std::optional<RunningApplication>>(
        m_timings.answerDeadline, std::nullopt, [this, answer](std::optional<RunningApplication> app) {
            if (!app || isTerminal(*app)) {
                answer(app, std::nullopt);
                return;
            }
            const FocusResult noFocus { AxError::CannotComplete, std::nullopt };
            m_accessibility.focusedElement(*app,
                deadline<FocusResult>(m_timings.answerDeadline, noFocus,
                    [answer, app](FocusResult focus) { answer(app, focus.element); }));
        }));
}

// Replacement

void AccessibilityHelper::isStillSelected(
    const CaptureTarget &target, std::function<void(bool selected)> done)
{
    if (target.method != CaptureTarget::Method::Handed || !target.element) {
        done(true);
        return;
    }
    m_accessibility.selectedText(*target.element,
        deadline<std::optional<QString>>(m_timings.answerDeadline, std::nullopt,
            [target, done = std::move(done)](
                const std::optional<QString> &selected) { done(selected == target.selected); }));
}

void AccessibilityHelper::replaceSelectedText(
    const QString &text, const CaptureTarget &target, ReplaceCallback done)
{
    logStep({ u"replaceSelectedText called with: ",
        Log::Private(Characters::first(text, logPrefixCharacters)), u"..." });
    if (target.method == CaptureTarget::Method::Primary) {
        leaveOnClipboard(
            text, u"Not replacing: "_s + nameOrUnknown(target.application) + u" is a terminal"_s, target);
        done(std::nullopt);
        return;
    }
    m_workspace.frontmostApplication(deadline<std::optional<RunningApplication>>(m_timings.answerDeadline,
        std::nullopt, [this, text, target, done = std::move(done)](std::optional<RunningApplication> front) {
            replaceInFront(text, target, front, done);
        }));
}

void AccessibilityHelper::replaceInFront(const QString &text, const CaptureTarget &target,
    const std::optional<RunningApplication> &front, ReplaceCallback done)
{
    if (!front) {
        Log::write(u"❌", tag, u"No frontmost application");
        done(std::nullopt);
        return;
    }
    logStep({ u"Frontmost app: ", Log::Public(nameOrUnknown(front)) });
    if (target.application && !sameWindow(*front, *target.application)) {
        leaveOnClipboard(
            text, u"Not replacing: "_s + nameOrUnknown(target.application) + u" is not in front"_s);
        done(std::nullopt);
        return;
    }
    if (isTerminal(*front)) {
        leaveOnClipboard(text, u"Not replacing: "_s + nameOrUnknown(front) + u" is a terminal"_s,
            { CaptureTarget::Method::Primary, front, std::nullopt, {} });
        done(std::nullopt);
        return;
    }

    const FocusResult noFocus { AxError::CannotComplete, std::nullopt };
    m_accessibility.focusedElement(*front,
        deadline<FocusResult>(m_timings.answerDeadline, noFocus,
            [this, text, target, front = *front, done = std::move(done)](FocusResult focus) {
                logStep({ u"Focus result: ", focus.error });
                if (focus.error != AxError::Success || !focus.element) {
                    Log::write(u"❌", tag, u"Failed to get focused element");
                    done(std::nullopt);
                    return;
                }
                replaceInElement(text, target, front, focus, done);
            }));
}

void AccessibilityHelper::replaceInElement(const QString &text, const CaptureTarget &target,
    const RunningApplication &front, const FocusResult &focus, ReplaceCallback done)
{
    const bool checkSelection = target.method == CaptureTarget::Method::Accessibility
        || target.method == CaptureTarget::Method::Handed;
    if (!checkSelection) {
        logStep(u"Got focused element, attempting AX replace...");
        writeElement(text, *focus.element, front, true, std::move(done));
        return;
    }

    // Written only over the text that was captured (or handed to us): a selection the
    // user has moved since holds other words.
    const Element element = target.element.value_or(*focus.element);
    const bool pasteAllowed = sameElement(element, *focus.element);
    m_accessibility.selectedText(element,
        deadline<std::optional<QString>>(m_timings.answerDeadline, std::nullopt,
            [this, text, target, front, element, pasteAllowed, done = std::move(done)](
                std::optional<QString> selected) {
                if (selected != target.selected) {
                    const QString message = u"Not replacing: the selection in "_s + nameOrUnknown(front)
                        + u" is not the text it was"_s;
                    if (target.method == CaptureTarget::Method::Handed)
                        Log::write(u"❌", tag, Log::Public(message));
                    else
                        leaveOnClipboard(text, message);
                    done(std::nullopt);
                    return;
                }
                logStep(u"Got focused element, attempting AX replace...");
                writeElement(text, element, front, pasteAllowed, done);
            }));
}

void AccessibilityHelper::writeElement(const QString &text, const Element &element,
    const RunningApplication &front, bool pasteAllowed, ReplaceCallback done)
{
    // Where the selection begins is where the text will start: kept so that the Replace
    // can be read back and taken back later.
    m_accessibility.selectedRange(element,
        deadline<std::optional<TextRange>>(m_timings.answerDeadline, std::nullopt,
            [this, text, element, front, pasteAllowed, done = std::move(done)](
                std::optional<TextRange> range) {
                writeElementAt(text, element, front, pasteAllowed, range, done);
            }));
}

void AccessibilityHelper::writeElementAt(const QString &text, const Element &element,
    const RunningApplication &front, bool pasteAllowed, std::optional<TextRange> range, ReplaceCallback done)
{
    m_accessibility.setSelectedText(element, text,
        deadline<int>(m_timings.writeDeadline, noAnswer,
            [this, text, element, front, pasteAllowed, range, done = std::move(done)](int error) {
                const bool answered = error != noAnswer;
                if (!answered)
                    error = AxError::CannotComplete;
                logStep({ u"AX replace result: ", error });
                if (error == AxError::Success) {
                    Log::write(u"✅", tag, u"AX replace successful");
                    // Without a selection the text went in at the caret, whose offset is unknown.
                    const bool placed = range && range->end > range->start;
                    done(WrittenPlace {
                        front, placed ? std::optional(element) : std::nullopt, placed ? range->start : 0 });
                    return;
                }
                if (!answered || !pasteAllowed) {
                    leaveOnClipboard(text,
                        u"Not pasting: "_s + nameOrUnknown(front)
                            + (answered ? u" has moved its focus"_s : u" did not answer in time"_s));
                    done(std::nullopt);
                    return;
                }
                logStep(u"AX failed, using clipboard fallback...");
                pasteFallback(text, front);
                done(WrittenPlace { front, std::nullopt, 0 });
            }));
}

void AccessibilityHelper::pasteFallback(const QString &text, const RunningApplication &front)
{
    // While an earlier fallback still waits to restore, the clipboard holds its rewrite,
    // not the user's contents: keep what that one saved.
    const int generation = ++m_replaceGeneration;
    const auto setText = [this, generation, front, text] {
        if (generation != m_replaceGeneration)
            return; // a later replacement took over while the clipboard was being read
        m_restorePending = true;
        m_pasteboard.setString(text);
        logStep(u"Text set to clipboard");
        QTimer::singleShot(
            m_timings.pasteDelay, this, [this, generation, front, text] { paste(generation, front, text); });
    };
    if (m_restorePending) {
        setText();
        return;
    }
    m_pasteboard.snapshot(deadline<Pasteboard::Snapshot>(
        m_timings.clipboardDeadline, nullptr, [this, setText](Pasteboard::Snapshot saved) {
            m_replaceSaved = saved;
            setText();
        }));
}

void AccessibilityHelper::paste(int generation, const RunningApplication &target, const QString &text)
{
    // Ctrl+V goes to whichever window is in front now. If the user has moved on, the
    // rewrite must not land there; it stays on the clipboard for them instead.
    m_workspace.frontmostApplication(deadline<std::optional<RunningApplication>>(m_timings.answerDeadline,
        std::nullopt, [this, generation, target, text](std::optional<RunningApplication> front) {
            if (!front || !sameWindow(*front, target)) {
                const QString message
                    = u"Not pasting: "_s + nameOrUnknown(target) + u" is no longer in front"_s;
                if (generation == m_replaceGeneration)
                    leaveOnClipboard(text, message);
                else // a later replacement has the clipboard now
                    Log::write(u"❌", tag, Log::Public(message));
                return;
            }
            logStep(u"Sending ⌘V");
            QPointer<AccessibilityHelper> self(this);
            m_keySynth.post(Keys::V, Keys::Super, [self, generation] {
                if (!self)
                    return;
                logStep(u"⌘V sent");
                QTimer::singleShot(self->m_timings.restoreDelay, self,
                    [self, generation] { self->restoreAfterPaste(generation); });
            });
        }));
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
    logStep(u"Clipboard restored");
}

// Taking a Replace back

void AccessibilityHelper::takeBack(const QString &original, const QString &rewrite, const WrittenPlace &place,
    std::function<void(TakeBack result)> done)
{
    const auto finish
        = [this, original, name = nameOrUnknown(place.application), done = std::move(done)](TakeBack result) {
              if (result == TakeBack::Restored) {
                  Log::write(u"↩️", tag, u"Undo successful: the original is written back");
              } else {
                  static const QHash<TakeBack, QString> why {
                      { TakeBack::NotInFront, u" is not in front"_s },
                      { TakeBack::CannotCheck, u" got the rewrite by a paste, which cannot be read back"_s },
                      { TakeBack::Gone, u" no longer has the text"_s },
                      { TakeBack::Changed, u" has other text where the rewrite went"_s },
                      { TakeBack::NotWritten, u" did not take the original"_s },
                  };
                  leaveOnClipboard(original, u"Not undoing: "_s + name + why.value(result));
              }
              done(result);
          };
    m_workspace.frontmostApplication(deadline<std::optional<RunningApplication>>(m_timings.answerDeadline,
        std::nullopt, [this, original, rewrite, place, finish](std::optional<RunningApplication> front) {
            if (!front || !sameWindow(*front, place.application)) {
                finish(TakeBack::NotInFront);
                return;
            }
            takeBackInFront(original, rewrite, place, finish);
        }));
}

void AccessibilityHelper::takeBackInFront(const QString &original, const QString &rewrite,
    const WrittenPlace &place, std::function<void(TakeBack)> done)
{
    if (!place.element) {
        done(TakeBack::CannotCheck);
        return;
    }
    const Element element = *place.element;
    // Offsets count code points in GTK and UTF-16 units in some other toolkits: the rewrite
    // is looked for at both lengths, which differ only beyond the Basic Multilingual Plane.
    const int codePoints = int(rewrite.toUcs4().size());
    const int units = int(rewrite.size());
    const TextRange first { place.start, place.start + codePoints };
    const TextRange second { place.start, place.start + units };
    m_accessibility.textIn(element, first,
        deadline<std::optional<QString>>(m_timings.answerDeadline, std::nullopt,
            [this, original, rewrite, element, first, second, done](std::optional<QString> there) {
                if (!there) {
                    done(TakeBack::Gone);
                    return;
                }
                if (*there == rewrite) {
                    writeBack(original, element, first, done);
                    return;
                }
                if (second.end == first.end) {
                    done(TakeBack::Changed);
                    return;
                }
                m_accessibility.textIn(element, second,
                    deadline<std::optional<QString>>(m_timings.answerDeadline, std::nullopt,
                        [this, original, rewrite, element, second, done](std::optional<QString> inUnits) {
                            if (inUnits == rewrite)
                                writeBack(original, element, second, done);
                            else
                                done(inUnits ? TakeBack::Changed : TakeBack::Gone);
                        }));
            }));
}

void AccessibilityHelper::writeBack(
    const QString &original, const Element &element, TextRange range, std::function<void(TakeBack)> done)
{
    m_accessibility.replaceRange(element, range, original,
        deadline<int>(m_timings.writeDeadline, noAnswer, [done = std::move(done)](int error) {
            done(error == AxError::Success ? TakeBack::Restored : TakeBack::NotWritten);
        }));
}

void AccessibilityHelper::copy(const QString &text, const CaptureTarget &target)
{
    // The text is the user's to paste now: plain, so a clipboard manager keeps it, and
    // no pending restore may take it away again.
    m_restorePending = false;
    m_replaceSaved = nullptr;
    ++m_replaceGeneration;
    auto contents = std::make_shared<QMimeData>();
    contents->setText(text);
    m_pasteboard.restore(contents);
    if (target.method == CaptureTarget::Method::Primary && m_primarySelection)
        m_primarySelection->setText(text);
}

void AccessibilityHelper::leaveOnClipboard(
    const QString &text, const QString &message, const CaptureTarget &target)
{
    copy(text, target);
    Log::write(u"❌", tag, { Log::Public(message), u", the text is on the clipboard" });
}
