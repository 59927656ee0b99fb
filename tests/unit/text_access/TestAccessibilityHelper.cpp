// Faults: the clipboard not restored or typed into the wrong window, a terminal interrupted, wrong log lines.
#include "AccessibilityHelper.h"
#include "FakeAccessibility.h"
#include "FakeKeySynth.h"
#include "FakePasteboard.h"
#include "FakePrimarySelection.h"
#include "FakeWorkspace.h"
#include "Log.h"
#include "StdoutCapture.h"

#include <QSignalSpy>
#include <QTest>
#include <QTimer>

using namespace Qt::StringLiterals;

using Formats = FakePasteboard::Formats;
using Key = FakeKeySynth::Key;
Q_DECLARE_METATYPE(Formats)
using Method = CaptureTarget::Method;
Q_DECLARE_METATYPE(std::optional<QString>)
Q_DECLARE_METATYPE(Method)

namespace {

const Key copyKey { Keys::C, Keys::Super };
const Key pasteKey { Keys::V, Keys::Super };

const Formats richUserClipboard { { u"text/plain"_s, "user text" }, { u"text/html"_s, "<b>user</b> text" },
    { u"image/png"_s, QByteArray("\x89PNG\r\n\x1a\n", 8) } };
const Formats imageOnly { { u"image/png"_s, QByteArray("\x89PNG\r\n\x1a\n", 8) } };
const Formats emptyText { { u"text/plain"_s, QByteArray() } };

// Short enough to keep the suite quick, in the same proportions as in production.
const TextAccessTimings fast { 20, std::chrono::milliseconds(5), std::chrono::milliseconds(10),
    std::chrono::milliseconds(50), std::chrono::milliseconds(60), std::chrono::milliseconds(120),
    std::chrono::milliseconds(60) };

const RunningApplication mousepad { 4242, u"Mousepad"_s, 0x1200007, { u"mousepad"_s, u"Mousepad"_s } };
const RunningApplication xterm { 5151, u"XTerm"_s, 0x1600022, { u"xterm"_s, u"XTerm"_s } };

Formats ourText(const QString &text)
{
    return { { u"text/plain"_s, text.toUtf8() }, { u"x-kde-passwordManagerHint"_s, "secret" } };
}

} // namespace

class TestAccessibilityHelper : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<FakeWorkspace> m_workspace;
    std::unique_ptr<FakeAccessibility> m_accessibility;
    std::unique_ptr<FakeKeySynth> m_keys;
    std::unique_ptr<FakePasteboard> m_pasteboard;
    std::unique_ptr<FakePrimarySelection> m_primary;
    std::unique_ptr<AccessibilityHelper> m_helper;

    Capture captureNow()
    {
        int answers = 0;
        Capture result;
        m_helper->captureSelectedText([&](const Capture &capture) {
            ++answers;
            result = capture;
        });
        [&] { QTRY_COMPARE_WITH_TIMEOUT(answers, 1, 3000); }();
        settle();
        [&] { QCOMPARE(answers, 1); }();
        return result;
    }

    std::optional<bool> replaceNow(const QString &text, const CaptureTarget &target)
    {
        int answers = 0;
        std::optional<bool> result;
        m_helper->replaceSelectedText(text, target, [&](const std::optional<WrittenPlace> &written) {
            ++answers;
            result = written.has_value();
        });
        [&] { QTRY_COMPARE_WITH_TIMEOUT(answers, 1, 3000); }();
        return result;
    }

    // Makes the frontmost application copy `copied` when it receives Ctrl+C; a null
    // string means it ignores the key.
    void applicationCopies(const QString &copied, int afterMs = 0)
    {
        m_keys->onPost = [this, copied, afterMs](int code, quint64) {
            if (code != Keys::C || copied.isNull())
                return;
            QTimer::singleShot(afterMs, this, [this, copied] {
                m_pasteboard->setContents({ { u"text/plain"_s, copied.toUtf8() } });
            });
        };
    }

    // Lets every timer the helper may still have set go off: one more restore delay on
    // top of the longest sequence.
    void settle()
    {
        // A marker set after every timer of the helper: timers of equal or shorter delay
        // that were started earlier fire before it.
        bool passed = false;
        QTimer::singleShot(
            fast.writeDeadline + fast.pasteDelay + fast.restoreDelay, this, [&] { passed = true; });
        QTRY_VERIFY(passed);
    }

private Q_SLOTS:
    void init()
    {
        m_workspace = std::make_unique<FakeWorkspace>();
        m_workspace->frontmost = mousepad;
        m_accessibility = std::make_unique<FakeAccessibility>();
        m_keys = std::make_unique<FakeKeySynth>();
        m_pasteboard = std::make_unique<FakePasteboard>();
        m_primary = std::make_unique<FakePrimarySelection>();
        m_helper = std::make_unique<AccessibilityHelper>(
            *m_workspace, *m_accessibility, *m_keys, *m_pasteboard, m_primary.get(), fast);
    }

    void cleanup()
    {
        m_helper.reset();
        Log::setDetail(Log::Detail::Full);
    }

    void capture_data()
    {
        // What is unusual: "no frontmost", "focus fails", "application hangs", "application
        // late", "window system hangs", "terminal", "terminal, nothing selected"; or nothing.
        QTest::addColumn<QString>("situation");
        QTest::addColumn<std::optional<QString>>("axSelection");
        QTest::addColumn<QString>("copied"); // null: the application ignores Ctrl+C
        QTest::addColumn<std::optional<QString>>("expected");
        QTest::addColumn<Method>("method");
        QTest::addColumn<Formats>("userClipboard");
        QTest::addColumn<Formats>("clipboardAfter");

        const auto none = std::optional<QString>();
        const auto text = [](const QString &s) { return std::optional<QString>(s); };
        // The user's clipboard is put back as it was unless told otherwise.
        const auto row
            = [](const char *name, const QString &situation, const std::optional<QString> &axSelection,
                  const QString &copied, const std::optional<QString> &expected, Method method,
                  const Formats &userClipboard = richUserClipboard,
                  const std::optional<Formats> &clipboardAfter = {}) {
                  QTest::newRow(name) << situation << axSelection << copied << expected << method
                                      << userClipboard << clipboardAfter.value_or(userClipboard);
              };

        // The accessibility bus answers: the clipboard is never touched.
        row("selection through accessibility", {}, text(u"B"_s), u"never"_s, text(u"B"_s),
            Method::Accessibility);
        row("blank selection returned untrimmed", {}, text(u"  \n "_s), {}, text(u"  \n "_s),
            Method::Accessibility);

        // It does not: copy, and put back everything the user had.
        row("empty accessible selection", {}, text(QString()), u"B"_s, text(u"B"_s), Method::Clipboard);
        row("no text interface", {}, none, u"B"_s, text(u"B"_s), Method::Clipboard, imageOnly);
        row("focus unavailable", u"focus fails"_s, text(u"stale"_s), u"B"_s, text(u"B"_s), Method::Clipboard,
            emptyText);
        row("no frontmost application", u"no frontmost"_s, text(u"X"_s), u"B"_s, text(u"B"_s),
            Method::Clipboard);
        row("selection equals clipboard text", {}, none, u"user text"_s, text(u"user text"_s),
            Method::Clipboard);
        row("copy ignored", {}, none, {}, none, Method::None);
        row("application copies nothing", {}, none, u""_s, none, Method::None);

        // With nothing of the user's to restore, the copy stays where it landed.
        row("empty clipboard keeps the copy", {}, none, u"B"_s, text(u"B"_s), Method::Clipboard, Formats(),
            Formats { { u"text/plain"_s, "B" } });

        // Whoever does not answer in time is passed over; capture goes on by its deadline.
        row("application never answers", u"application hangs"_s, text(u"X"_s), u"B"_s, text(u"B"_s),
            Method::Clipboard);
        row("application answers after the deadline", u"application late"_s, text(u"X"_s), u"B"_s,
            text(u"B"_s), Method::Clipboard);
        row("window system never answers", u"window system hangs"_s, text(u"X"_s), u"B"_s, text(u"B"_s),
            Method::Clipboard);

        // A terminal is never sent Ctrl+C: it would interrupt the job running in it.
        row("terminal: its PRIMARY selection", u"terminal"_s, none, u"B"_s, text(u"ls -l"_s),
            Method::Primary);
        row("terminal that selected nothing", u"terminal, nothing selected"_s, none, u"B"_s, none,
            Method::None);
    }

    void capture()
    {
        QFETCH(QString, situation);
        QFETCH(std::optional<QString>, axSelection);
        QFETCH(QString, copied);
        QFETCH(std::optional<QString>, expected);
        QFETCH(Method, method);
        QFETCH(Formats, userClipboard);
        QFETCH(Formats, clipboardAfter);

        const bool terminal = situation.startsWith(u"terminal"_s);
        if (situation == u"no frontmost")
            m_workspace->frontmost.reset();
        else
            m_workspace->frontmost = terminal ? xterm : mousepad;
        m_workspace->silent = situation == u"window system hangs";
        m_accessibility->silent = situation == u"application hangs";
        if (situation == u"application late")
            m_accessibility->answerDelayMs = int(fast.answerDeadline.count()) * 2;
        m_accessibility->focus.error = situation == u"focus fails" ? AxError::Failure : 0;
        m_accessibility->selection = axSelection;
        m_primary->selection = u"ls -l"_s;
        m_primary->owner = situation == u"terminal, nothing selected" ? mousepad.window : xterm.window;
        applicationCopies(copied);
        m_pasteboard->setContents(userClipboard);
        const int countBefore = m_pasteboard->changeCount();

        const Capture capture = captureNow();
        QCOMPARE(capture.text, expected);
        QCOMPARE(capture.target.method, method);
        QCOMPARE(m_pasteboard->contents(), clipboardAfter);
        if (capture.text && !m_workspace->silent)
            QCOMPARE(capture.target.application.value_or(RunningApplication {}).window,
                m_workspace->frontmost.value_or(RunningApplication {}).window);
        if (method == Method::Accessibility)
            QCOMPARE(capture.target.element.value_or(Element {}).path, m_accessibility->focus.element->path);

        const bool typesCopy = method == Method::Clipboard || (method == Method::None && !terminal);
        QCOMPARE(m_keys->keys, typesCopy ? QList<Key> { copyKey } : QList<Key>());
        if (!typesCopy)
            QCOMPARE(m_pasteboard->changeCount(), countBefore);
    }

    void secondCaptureJoinsTheFirst()
    {
        m_accessibility->selection.reset();
        m_pasteboard->setContents(richUserClipboard);
        // A slow application answers Ctrl+C after several polls: neither caller is answered
        // before, and the user's clipboard stays saved until then.
        applicationCopies(u"B"_s, int(fast.pollPause.count()) * 8);
        QList<std::optional<QString>> answers;
        m_helper->captureSelectedText([&](const Capture &capture) { answers.append(capture.text); });
        m_helper->captureSelectedText([&](const Capture &capture) { answers.append(capture.text); });
        QVERIFY(answers.isEmpty());
        QTRY_COMPARE(answers.size(), 2);
        QCOMPARE(answers, QList<std::optional<QString>>(2, u"B"_s));
        QCOMPARE(m_keys->keys.size(), 1);
        QCOMPARE(m_pasteboard->contents(), richUserClipboard);

        // Finished captures do not swallow the next one.
        QCOMPARE(captureNow().text, std::optional<QString>(u"B"_s));
        QCOMPARE(m_keys->keys.size(), 2);
    }

    // The line that the accessibility switch is off comes only where capture needed the bus
    // and found nothing, and only once: a terminal, or an application whose text the bus
    // carries anyway (GTK joins it with the switch off), hears nothing of it.
    void busOffSaidOnlyWhenNeeded_data()
    {
        QTest::addColumn<bool>("switchOn");
        QTest::addColumn<bool>("terminal");
        QTest::addColumn<bool>("textOnTheBus");
        QTest::addColumn<int>("lines"); // after two captures

        QTest::newRow("switch off, nothing on the bus: said once") << false << false << false << 1;
        QTest::newRow("switch on, the application offers no text") << true << false << false << 0;
        QTest::newRow("switch off, but the application is on the bus") << false << false << true << 0;
        QTest::newRow("switch off, a terminal: PRIMARY needs no bus") << false << true << false << 0;
    }
    void busOffSaidOnlyWhenNeeded()
    {
        QFETCH(bool, switchOn);
        QFETCH(bool, terminal);
        QFETCH(bool, textOnTheBus);
        QFETCH(int, lines);

        m_accessibility->switchState.on = switchOn;
        m_accessibility->focus.element = textOnTheBus ? Element { u"app"_s, u"/focused"_s } : Element {};
        m_accessibility->selection = u"words"_s;
        m_workspace->frontmost = terminal ? xterm : mousepad;
        m_primary->owner = xterm.window;
        m_primary->selection = u"words"_s;
        applicationCopies(u"words"_s);

        static QStringList said;
        said.clear();
        const QtMessageHandler previous = qInstallMessageHandler(
            [](QtMsgType, const QMessageLogContext &context, const QString &message) {
                if (QByteArray(context.category) == "tessary.textaccess"
                    && message.contains(u"switch is off"_s))
                    said.append(message);
            });
        QCOMPARE(captureNow().text, std::optional(u"words"_s));
        QCOMPARE(captureNow().text, std::optional(u"words"_s));
        qInstallMessageHandler(previous);
        QCOMPARE(said.size(), lines);
    }

    void replace_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("situation"); // "no frontmost", "unnamed", "focus fails", or nothing
        QTest::addColumn<int>("setError");
        QTest::addColumn<bool>("expected");
        QTest::addColumn<QStringList>("log");
        QTest::addColumn<Formats>("userClipboard");
        QTest::addColumn<Formats>("clipboardAfter");
        QTest::addColumn<bool>("hidden"); // the user's words hidden, as in the journal

        const auto row = [](const char *name, const QString &situation, int setError, bool expected,
                             const QStringList &log, const Formats &userClipboard = richUserClipboard,
                             const std::optional<Formats> &clipboardAfter = {}) {
            QTest::newRow(name) << u"new text"_s << situation << setError << expected << log << userClipboard
                                << clipboardAfter.value_or(userClipboard) << false;
        };
        const auto calledWith = [](const QString &shown) {
            return u"🔧 [AccessibilityHelper] replaceSelectedText called with: "_s + shown + u"..."_s;
        };
        const QString called = calledWith(u"new text"_s);
        const QString front = u"🔧 [AccessibilityHelper] Frontmost app: Mousepad"_s;
        const QString focusOk = u"🔧 [AccessibilityHelper] Focus result: 0"_s;
        const QString attempt = u"🔧 [AccessibilityHelper] Got focused element, attempting AX replace..."_s;
        const QStringList accepted { front, focusOk, attempt,
            u"🔧 [AccessibilityHelper] AX replace result: 0"_s,
            u"✅ [AccessibilityHelper] AX replace successful"_s };
        const QStringList fallback { called, front, focusOk, attempt,
            u"🔧 [AccessibilityHelper] AX replace result: -25205"_s,
            u"🔧 [AccessibilityHelper] AX failed, using clipboard fallback..."_s,
            u"🔧 [AccessibilityHelper] Text set to clipboard"_s, u"🔧 [AccessibilityHelper] Sending ⌘V"_s,
            u"🔧 [AccessibilityHelper] ⌘V sent"_s };
        const QStringList restored
            = fallback + QStringList { u"🔧 [AccessibilityHelper] Clipboard restored"_s };
        const int refused = AxError::AttributeUnsupported;

        row("accessibility accepts", {}, 0, true, QStringList { called } + accepted);
        row("refused, every format restored", {}, refused, true, restored);
        row("refused, empty string restored", {}, refused, true, restored, emptyText);
        row("refused, empty clipboard keeps the rewrite", {}, refused, true, fallback, Formats(),
            ourText(u"new text"_s));
        QStringList unnamed = restored;
        unnamed[1] = u"🔧 [AccessibilityHelper] Frontmost app: Unknown"_s;
        row("application without a name", u"unnamed"_s, refused, true, unnamed);
        row("no frontmost application", u"no frontmost"_s, 0, false,
            { called, u"❌ [AccessibilityHelper] No frontmost application"_s });
        row("focus read fails", u"focus fails"_s, 0, false,
            { called, front, u"🔧 [AccessibilityHelper] Focus result: -25204"_s,
                u"❌ [AccessibilityHelper] Failed to get focused element"_s });

        // The call's line shows the first fifty characters as the user counts them.
        const auto shows = [&](const char *name, const QString &text, const QString &shown) {
            QTest::newRow(name) << text << QString() << 0 << true
                                << QStringList { calledWith(shown) } + accepted << richUserClipboard
                                << richUserClipboard << false;
        };
        const QString family = u"👨‍👩‍👧"_s; // one character for the user, five code points
        shows("empty text", QString(), QString());
        shows("exactly fifty characters", QString(50, u'a'), QString(50, u'a'));
        shows("the first fifty of more", QString(49, u'a') + u"bc"_s, QString(49, u'a') + u"b"_s);
        shows("joined emoji stay whole", family.repeated(60), family.repeated(50));
        shows("combining accents", u"e\u0301"_s.repeated(51), u"e\u0301"_s.repeated(50));
        // The rewrite is the user's; the application's name is not.
        QTest::newRow("not asked for exact lines: the rewrite's length")
            << u"new text"_s << QString() << 0 << true
            << QStringList { calledWith(u"[8 characters]"_s) } + accepted << richUserClipboard
            << richUserClipboard << true;
    }

    void replace()
    {
        QFETCH(QString, text);
        QFETCH(QString, situation);
        QFETCH(int, setError);
        QFETCH(bool, expected);
        QFETCH(QStringList, log);
        QFETCH(Formats, userClipboard);
        QFETCH(Formats, clipboardAfter);
        QFETCH(bool, hidden);

        Log::setDetail(hidden ? Log::Detail::Private : Log::Detail::Full);
        if (situation == u"no frontmost")
            m_workspace->frontmost.reset();
        else if (situation == u"unnamed")
            m_workspace->frontmost->name.clear();
        m_accessibility->focus.error = situation == u"focus fails" ? AxError::CannotComplete : 0;
        m_accessibility->setError = setError;
        m_pasteboard->setContents(userClipboard);
        Formats clipboardAtPaste;
        m_keys->onPost = [&](int, quint64) { clipboardAtPaste = m_pasteboard->contents(); };

        StdoutCapture out;
        // No target recorded: whatever window is in front, as the original did.
        QCOMPARE(replaceNow(text, CaptureTarget {}), std::optional<bool>(expected));
        const bool fallback = expected && setError != 0;
        // The result is known before any paste happens.
        QVERIFY(m_keys->keys.isEmpty());
        if (fallback) {
            QCOMPARE(m_pasteboard->contents(), ourText(text));
            QTRY_COMPARE(m_keys->keys, QList<Key> { pasteKey });
            QCOMPARE(clipboardAtPaste, ourText(text));
        }
        settle();
        QCOMPARE(out.lines(), log);
        QCOMPARE(m_pasteboard->contents(), clipboardAfter);
        QCOMPARE(m_accessibility->written.size(),
            situation == u"no frontmost" || situation == u"focus fails" ? 0 : 1);
        if (!fallback)
            QVERIFY(m_keys->keys.isEmpty());
    }

    void quickSuccessiveReplacementsRestoreUserClipboard()
    {
        m_accessibility->setError = AxError::AttributeUnsupported;
        m_pasteboard->setContents(richUserClipboard);
        QList<Formats> pasted;
        m_keys->onPost = [&](int, quint64) { pasted.append(m_pasteboard->contents()); };
        const CaptureTarget target { Method::Clipboard, mousepad, std::nullopt, u"old"_s };

        QCOMPARE(replaceNow(u"first"_s, target), std::optional<bool>(true));
        QTRY_COMPARE(pasted.size(), 1);
        QCOMPARE(replaceNow(u"second"_s, target), std::optional<bool>(true));
        QTRY_COMPARE(pasted.size(), 2);
        QCOMPARE(pasted, (QList<Formats> { ourText(u"first"_s), ourText(u"second"_s) }));
        QTRY_COMPARE(m_pasteboard->contents(), richUserClipboard);

        // The second paste is still waiting for the user's keys when the first one's restore
        // comes due: that restore must not pull the rewrite from under it.
        QCOMPARE(replaceNow(u"third"_s, target), std::optional<bool>(true));
        QTRY_COMPARE(pasted.size(), 3);
        m_keys->holdPosts = true;
        QCOMPARE(replaceNow(u"fourth"_s, target), std::optional<bool>(true));
        QTRY_COMPARE(pasted.size(), 4);
        settle();
        QCOMPARE(m_pasteboard->contents(), ourText(u"fourth"_s));
        m_keys->finishPosts();
        QTRY_COMPARE(m_pasteboard->contents(), richUserClipboard);
        m_keys->holdPosts = false;

        // Once everything is restored, a new replacement saves the clipboard afresh.
        m_pasteboard->setContents(imageOnly);
        QCOMPARE(replaceNow(u"fifth"_s, target), std::optional<bool>(true));
        QTRY_COMPARE(pasted.size(), 5);
        QTRY_COMPARE(m_pasteboard->contents(), imageOnly);
    }

    // A paste is told by its restore line. A refusal that says the text is on the clipboard leaves
    // the rewrite there; every other outcome leaves the user's clipboard as it was.
    void replaceOnlyIntoTheTarget_data()
    {
        QTest::addColumn<Method>("method");
        QTest::addColumn<QString>("change"); // what happens between capture and Replace
        QTest::addColumn<int>("setError");
        QTest::addColumn<bool>("expected");
        QTest::addColumn<QStringList>("written");
        QTest::addColumn<QString>("lastLine");

        const auto row = [](const char *name, Method method, const QString &change, int setError,
                             bool expected, const QStringList &written, const QString &lastLine) {
            QTest::newRow(name) << method << change << setError << expected << written << lastLine;
        };
        const QStringList once { u"new text"_s };
        const int refused = AxError::AttributeUnsupported;
        const QString success = u"✅ [AccessibilityHelper] AX replace successful"_s;
        const QString restored = u"🔧 [AccessibilityHelper] Clipboard restored"_s;
        const QString selectionMoved
            = u"❌ [AccessibilityHelper] Not replacing: the selection in Mousepad is not the text it was"_s;

        row("accessibility, untouched", Method::Accessibility, {}, 0, true, once, success);
        row("accessibility refused, pasted", Method::Accessibility, {}, refused, true, once, restored);
        row("clipboard, pasted", Method::Clipboard, {}, refused, true, once, restored);
        // Whatever the capture's method: the window is compared first.
        row("another window in front, nothing written", Method::Accessibility, u"other window"_s, 0, false,
            {},
            u"❌ [AccessibilityHelper] Not replacing: Mousepad is not in front, the text is on the clipboard"_s);
        row("focus moves on before the paste", Method::Clipboard, u"window changes before paste"_s, refused,
            true, once,
            u"❌ [AccessibilityHelper] Not pasting: Mousepad is no longer in front, the text is on the clipboard"_s);
        row("selection moved since capture", Method::Accessibility, u"selection"_s, 0, false, {},
            selectionMoved + u", the text is on the clipboard"_s);
        row("focus moved to another field, not pasted there", Method::Accessibility, u"focus"_s, refused,
            false, once,
            u"❌ [AccessibilityHelper] Not pasting: Mousepad has moved its focus, the text is on the clipboard"_s);
        row("write never answered, nothing pasted on top", Method::Accessibility, u"write hangs"_s, 0, false,
            once,
            u"❌ [AccessibilityHelper] Not pasting: Mousepad did not answer in time, the text is on the clipboard"_s);

        // Handed over D-Bus: only where that same text is still selected; else the caller copies.
        row("handed, still selected", Method::Handed, {}, 0, true, once, success);
        row("handed, selection changed", Method::Handed, u"selection"_s, 0, false, {}, selectionMoved);

        // A terminal: Replace is a copy, onto the clipboard and PRIMARY; nothing is written or typed.
        row("terminal", Method::Primary, {}, 0, false, {},
            u"❌ [AccessibilityHelper] Not replacing: Mousepad is a terminal, the text is on the clipboard"_s);
    }

    void replaceOnlyIntoTheTarget()
    {
        QFETCH(Method, method);
        QFETCH(QString, change);
        QFETCH(int, setError);
        QFETCH(bool, expected);
        QFETCH(QStringList, written);
        QFETCH(QString, lastLine);

        const Element captured { u":1.42"_s, u"/org/a11y/atspi/accessible/7"_s };
        const CaptureTarget target { method, mousepad,
            method == Method::Clipboard ? std::nullopt : std::optional<Element>(captured), u"old text"_s };
        // Same program, another of its windows: still not where the text belongs.
        const RunningApplication other { mousepad.pid, mousepad.name, mousepad.window + 1,
            mousepad.windowClass };
        m_accessibility->focus.element = captured;
        m_accessibility->selection = u"old text"_s;
        if (change == u"other window")
            m_workspace->frontmost = other;
        else if (change == u"selection")
            m_accessibility->selection = u"other words"_s;
        else if (change == u"focus")
            m_accessibility->focus.element = Element { captured.service, u"/org/a11y/atspi/accessible/9"_s };
        m_accessibility->setError = setError;
        m_accessibility->writesHang = change == u"write hangs";
        m_pasteboard->setContents(richUserClipboard);
        if (change == u"window changes before paste")
            m_keys->onPost = [&](int, quint64) { QFAIL("typed into another window"); };

        StdoutCapture out;
        int answers = 0;
        m_helper->replaceSelectedText(u"new text"_s, target, [&](const std::optional<WrittenPlace> &written) {
            ++answers;
            QCOMPARE(written.has_value(), expected);
            if (change == u"window changes before paste")
                m_workspace->frontmost = other;
        });
        QTRY_COMPARE(answers, 1);
        settle();
        QCOMPARE(answers, 1);
        QCOMPARE(out.lines().value(out.lines().size() - 1), lastLine);
        QCOMPARE(m_accessibility->written, written);
        const bool pasted = lastLine == u"🔧 [AccessibilityHelper] Clipboard restored"_s;
        QCOMPARE(m_keys->keys, pasted ? QList<Key> { pasteKey } : QList<Key>());
        const Formats rewrite { { u"text/plain"_s, "new text" } };
        QCOMPARE(m_pasteboard->contents(),
            lastLine.endsWith(u"the text is on the clipboard"_s) ? rewrite : richUserClipboard);
        // Only a terminal pastes PRIMARY with its Shift+Insert: nobody else's selection is taken.
        QCOMPARE(m_primary->taken, method == Method::Primary ? QStringList { u"new text"_s } : QStringList());
    }
};

QTEST_GUILESS_MAIN(TestAccessibilityHelper)
#include "TestAccessibilityHelper.moc"
