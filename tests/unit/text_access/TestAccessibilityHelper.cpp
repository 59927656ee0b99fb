// Faults: the clipboard not restored or typed into the wrong window, a terminal interrupted, wrong log lines.
#include "AccessibilityHelper.h"
#include "FakeAccessibility.h"
#include "FakeKeySynth.h"
#include "FakePasteboard.h"
#include "FakePrimarySelection.h"
#include "FakeWorkspace.h"
#include "StdoutCapture.h"
#include "Terminals.h"

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
Q_DECLARE_METATYPE(std::optional<RunningApplication>)

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

private Q_SLOTS:
    void init();
    void cleanup();

    void capture_data();
    void capture();
    void secondCaptureJoinsTheFirst();
    void terminals_data();
    void terminals();

    void replace_data();
    void replace();
    void replaceLogsFirstFiftyCharacters_data();
    void replaceLogsFirstFiftyCharacters();
    void quickSuccessiveReplacementsRestoreUserClipboard();
    void replaceOnlyIntoTheTarget_data();
    void replaceOnlyIntoTheTarget();

private:
    Capture captureNow();
    std::optional<bool> replaceNow(const QString &text, const CaptureTarget &target);
    // Makes the frontmost application copy `copied` when it receives Ctrl+C; a null
    // string means it ignores the key.
    void applicationCopies(const QString &copied, int afterMs = 0);
    // Lets every timer the helper may still have set go off: one more restore delay on
    // top of the longest sequence.
    void settle();

    std::unique_ptr<FakeWorkspace> m_workspace;
    std::unique_ptr<FakeAccessibility> m_accessibility;
    std::unique_ptr<FakeKeySynth> m_keys;
    std::unique_ptr<FakePasteboard> m_pasteboard;
    std::unique_ptr<FakePrimarySelection> m_primary;
    std::unique_ptr<AccessibilityHelper> m_helper;
};

void TestAccessibilityHelper::init()
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

void TestAccessibilityHelper::cleanup()
{
    m_helper.reset();
}

Capture TestAccessibilityHelper::captureNow()
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

std::optional<bool> TestAccessibilityHelper::replaceNow(const QString &text, const CaptureTarget &target)
{
    int answers = 0;
    std::optional<bool> result;
    m_helper->replaceSelectedText(text, target, [&](bool replaced) {
        ++answers;
        result = replaced;
    });
    [&] { QTRY_COMPARE_WITH_TIMEOUT(answers, 1, 3000); }();
    return result;
}

void TestAccessibilityHelper::settle()
{
    // A marker set after every timer of the helper: timers of equal or shorter delay
    // that were started earlier fire before it.
    bool passed = false;
    QTimer::singleShot(
        fast.writeDeadline + fast.pasteDelay + fast.restoreDelay, this, [&] { passed = true; });
    QTRY_VERIFY(passed);
}

void TestAccessibilityHelper::applicationCopies(const QString &copied, int afterMs)
{
    m_keys->onPost = [this, copied, afterMs](int code, quint64) {
        if (code != Keys::C || copied.isNull())
            return;
        QTimer::singleShot(afterMs, this, [this, copied] {
            m_pasteboard->setContents({ { u"text/plain"_s, copied.toUtf8() } });
        });
    };
}

void TestAccessibilityHelper::capture_data()
{
    QTest::addColumn<std::optional<RunningApplication>>("frontmost");
    QTest::addColumn<QString>("hang"); // "", "window system", "application", "late application"
    QTest::addColumn<int>("focusError");
    QTest::addColumn<std::optional<QString>>("axSelection");
    QTest::addColumn<QString>("copied"); // null: the application ignores Ctrl+C
    QTest::addColumn<Formats>("userClipboard");
    QTest::addColumn<std::optional<QString>>("expected");
    QTest::addColumn<Method>("method");
    QTest::addColumn<Formats>("clipboardAfter");

    const auto none = std::optional<QString>();
    const auto text = [](const QString &s) { return std::optional<QString>(s); };
    const auto app = std::optional<RunningApplication>(mousepad);
    const QString ignores;

    // The accessibility bus answers: the clipboard is never touched.
    QTest::newRow("selection through accessibility")
        << app << QString() << 0 << text(u"B"_s) << u"never"_s << richUserClipboard << text(u"B"_s)
        << Method::Accessibility << richUserClipboard;
    QTest::newRow("blank selection returned untrimmed")
        << app << QString() << 0 << text(u"  \n "_s) << ignores << richUserClipboard << text(u"  \n "_s)
        << Method::Accessibility << richUserClipboard;

    // It does not: copy, and put back everything the user had.
    QTest::newRow("empty accessible selection")
        << app << QString() << 0 << text(QString()) << u"B"_s << richUserClipboard << text(u"B"_s)
        << Method::Clipboard << richUserClipboard;
    QTest::newRow("no text interface") << app << QString() << 0 << none << u"B"_s << imageOnly << text(u"B"_s)
                                       << Method::Clipboard << imageOnly;
    QTest::newRow("focus unavailable") << app << QString() << AxError::Failure << text(u"stale"_s) << u"B"_s
                                       << emptyText << text(u"B"_s) << Method::Clipboard << emptyText;
    QTest::newRow("no frontmost application")
        << std::optional<RunningApplication>() << QString() << 0 << text(u"X"_s) << u"B"_s
        << richUserClipboard << text(u"B"_s) << Method::Clipboard << richUserClipboard;
    QTest::newRow("selection equals clipboard text")
        << app << QString() << 0 << none << u"user text"_s << richUserClipboard << text(u"user text"_s)
        << Method::Clipboard << richUserClipboard;
    QTest::newRow("copy ignored") << app << QString() << 0 << none << ignores << richUserClipboard << none
                                  << Method::None << richUserClipboard;
    QTest::newRow("application copies nothing")
        << app << QString() << 0 << none << QString(u""_s) << richUserClipboard << none << Method::None
        << richUserClipboard;

    // With nothing of the user's to restore, the copy stays where it landed.
    QTest::newRow("empty clipboard keeps the copy")
        << app << QString() << 0 << none << u"B"_s << Formats() << text(u"B"_s) << Method::Clipboard
        << Formats { { u"text/plain"_s, "B" } };

    // Whoever does not answer in time is passed over; capture goes on by its deadline.
    QTest::newRow("application never answers")
        << app << u"application"_s << 0 << text(u"X"_s) << u"B"_s << richUserClipboard << text(u"B"_s)
        << Method::Clipboard << richUserClipboard;
    QTest::newRow("application answers after the deadline")
        << app << u"late application"_s << 0 << text(u"X"_s) << u"B"_s << richUserClipboard << text(u"B"_s)
        << Method::Clipboard << richUserClipboard;
    QTest::newRow("window system never answers")
        << app << u"window system"_s << 0 << text(u"X"_s) << u"B"_s << richUserClipboard << text(u"B"_s)
        << Method::Clipboard << richUserClipboard;

    // A terminal is never sent Ctrl+C: it would interrupt the job running in it.
    const auto terminal = std::optional<RunningApplication>(xterm);
    QTest::newRow("terminal: its PRIMARY selection")
        << terminal << QString() << 0 << none << u"B"_s << richUserClipboard << text(u"ls -l"_s)
        << Method::Primary << richUserClipboard;
    QTest::newRow("terminal that selected nothing")
        << terminal << u"other owner"_s << 0 << none << u"B"_s << richUserClipboard << none << Method::None
        << richUserClipboard;
}

void TestAccessibilityHelper::capture()
{
    QFETCH(std::optional<RunningApplication>, frontmost);
    QFETCH(QString, hang);
    QFETCH(int, focusError);
    QFETCH(std::optional<QString>, axSelection);
    QFETCH(QString, copied);
    QFETCH(Formats, userClipboard);
    QFETCH(std::optional<QString>, expected);
    QFETCH(Method, method);
    QFETCH(Formats, clipboardAfter);

    m_workspace->frontmost = frontmost;
    m_workspace->silent = hang == u"window system";
    m_accessibility->silent = hang == u"application";
    if (hang == u"late application")
        m_accessibility->answerDelayMs = int(fast.answerDeadline.count()) * 2;
    m_accessibility->focus.error = focusError;
    m_accessibility->selection = axSelection;
    m_primary->selection = u"ls -l"_s;
    m_primary->owner = hang == u"other owner" ? mousepad.window : xterm.window;
    applicationCopies(copied);
    m_pasteboard->setContents(userClipboard);
    const int countBefore = m_pasteboard->changeCount();

    const Capture capture = captureNow();
    QCOMPARE(capture.text, expected);
    QCOMPARE(capture.target.method, method);
    QCOMPARE(m_pasteboard->contents(), clipboardAfter);
    if (capture.text && !m_workspace->silent)
        QCOMPARE(capture.target.application.value_or(RunningApplication {}).window, frontmost->window);
    if (method == Method::Accessibility)
        QCOMPARE(capture.target.element.value_or(Element {}).path, m_accessibility->focus.element->path);

    const bool typesCopy = method == Method::Clipboard || (method == Method::None && !isTerminal(*frontmost));
    QCOMPARE(m_keys->keys, typesCopy ? QList<Key> { copyKey } : QList<Key>());
    if (!typesCopy)
        QCOMPARE(m_pasteboard->changeCount(), countBefore);
}

void TestAccessibilityHelper::secondCaptureJoinsTheFirst()
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
    QCOMPARE(answers.at(0), std::optional<QString>(u"B"_s));
    QCOMPARE(answers.at(1), std::optional<QString>(u"B"_s));
    QCOMPARE(m_keys->keys.size(), 1);
    QCOMPARE(m_pasteboard->contents(), richUserClipboard);

    // Finished captures do not swallow the next one.
    QCOMPARE(captureNow().text, std::optional<QString>(u"B"_s));
    QCOMPARE(m_keys->keys.size(), 2);
}

void TestAccessibilityHelper::terminals_data()
{
    QTest::addColumn<QStringList>("windowClass");
    QTest::addColumn<QString>("name");
    QTest::addColumn<bool>("terminal");

    QTest::newRow("xterm") << QStringList { u"xterm"_s, u"XTerm"_s } << u"XTerm"_s << true;
    QTest::newRow("gnome-terminal") << QStringList { u"gnome-terminal-server"_s, u"Gnome-terminal"_s }
                                    << u"Terminal"_s << true;
    QTest::newRow("xfce4-terminal") << QStringList { u"xfce4-terminal"_s, u"Xfce4-terminal"_s }
                                    << u"Xfce Terminal"_s << true;
    QTest::newRow("no class, known by name") << QStringList() << u"Konsole"_s << true;
    QTest::newRow("mousepad") << QStringList { u"mousepad"_s, u"Mousepad"_s } << u"Mousepad"_s << false;
    QTest::newRow("an editor named after a terminal word")
        << QStringList { u"termpad"_s, u"Termpad"_s } << u"Termpad"_s << false;
}

void TestAccessibilityHelper::terminals()
{
    QFETCH(QStringList, windowClass);
    QFETCH(QString, name);
    QFETCH(bool, terminal);
    QCOMPARE(isTerminal({ 1, name, 2, windowClass }), terminal);
}

void TestAccessibilityHelper::replace_data()
{
    QTest::addColumn<bool>("frontmost");
    QTest::addColumn<QString>("appName");
    QTest::addColumn<int>("focusError");
    QTest::addColumn<int>("setError");
    QTest::addColumn<Formats>("userClipboard");
    QTest::addColumn<bool>("expected");
    QTest::addColumn<QStringList>("log");
    QTest::addColumn<Formats>("clipboardAfter");

    const QString called = u"🔧 [AccessibilityHelper] replaceSelectedText called with: new text..."_s;
    const QString front = u"🔧 [AccessibilityHelper] Frontmost app: Mousepad"_s;
    const QString focusOk = u"🔧 [AccessibilityHelper] Focus result: 0"_s;
    const QString attempt = u"🔧 [AccessibilityHelper] Got focused element, attempting AX replace..."_s;
    const QStringList fallback { called, front, focusOk, attempt,
        u"🔧 [AccessibilityHelper] AX replace result: -25205"_s,
        u"🔧 [AccessibilityHelper] AX failed, using clipboard fallback..."_s,
        u"🔧 [AccessibilityHelper] Text set to clipboard"_s, u"🔧 [AccessibilityHelper] Sending ⌘V"_s,
        u"🔧 [AccessibilityHelper] ⌘V sent"_s };
    const QString restored = u"🔧 [AccessibilityHelper] Clipboard restored"_s;

    QTest::newRow("accessibility accepts")
        << true << u"Mousepad"_s << 0 << 0 << richUserClipboard << true
        << QStringList { called, front, focusOk, attempt, u"🔧 [AccessibilityHelper] AX replace result: 0"_s,
               u"✅ [AccessibilityHelper] AX replace successful"_s }
        << richUserClipboard;
    QTest::newRow("refused, every format restored")
        << true << u"Mousepad"_s << 0 << AxError::AttributeUnsupported << richUserClipboard << true
        << fallback + QStringList { restored } << richUserClipboard;
    QTest::newRow("refused, empty string restored")
        << true << u"Mousepad"_s << 0 << AxError::AttributeUnsupported << emptyText << true
        << fallback + QStringList { restored } << emptyText;
    QTest::newRow("refused, empty clipboard keeps the rewrite")
        << true << u"Mousepad"_s << 0 << AxError::AttributeUnsupported << Formats() << true << fallback
        << ourText(u"new text"_s);

    QStringList unnamed = fallback + QStringList { restored };
    unnamed[1] = u"🔧 [AccessibilityHelper] Frontmost app: Unknown"_s;
    QTest::newRow("application without a name") << true << QString() << 0 << AxError::AttributeUnsupported
                                                << richUserClipboard << true << unnamed << richUserClipboard;

    QTest::newRow("no frontmost application")
        << false << QString() << 0 << 0 << richUserClipboard << false
        << QStringList { called, u"❌ [AccessibilityHelper] No frontmost application"_s } << richUserClipboard;
    QTest::newRow("focus read fails")
        << true << u"Mousepad"_s << AxError::CannotComplete << 0 << richUserClipboard << false
        << QStringList { called, front, u"🔧 [AccessibilityHelper] Focus result: -25204"_s,
               u"❌ [AccessibilityHelper] Failed to get focused element"_s }
        << richUserClipboard;
}

void TestAccessibilityHelper::replace()
{
    QFETCH(bool, frontmost);
    QFETCH(QString, appName);
    QFETCH(int, focusError);
    QFETCH(int, setError);
    QFETCH(Formats, userClipboard);
    QFETCH(bool, expected);
    QFETCH(QStringList, log);
    QFETCH(Formats, clipboardAfter);

    if (frontmost)
        m_workspace->frontmost->name = appName;
    else
        m_workspace->frontmost.reset();
    m_accessibility->focus.error = focusError;
    m_accessibility->setError = setError;
    m_pasteboard->setContents(userClipboard);
    Formats clipboardAtPaste;
    m_keys->onPost = [&](int, quint64) { clipboardAtPaste = m_pasteboard->contents(); };

    StdoutCapture out;
    // No target recorded: whatever window is in front, as the original did.
    QCOMPARE(replaceNow(u"new text"_s, CaptureTarget {}), std::optional<bool>(expected));
    const bool fallback = expected && setError != 0;
    // The result is known before any paste happens.
    QVERIFY(m_keys->keys.isEmpty());
    if (fallback) {
        QCOMPARE(m_pasteboard->contents(), ourText(u"new text"_s));
        QTRY_COMPARE(m_keys->keys, QList<Key> { pasteKey });
        QCOMPARE(clipboardAtPaste, ourText(u"new text"_s));
    }
    settle();
    QCOMPARE(out.lines(), log);
    QCOMPARE(m_pasteboard->contents(), clipboardAfter);
    QCOMPARE(m_accessibility->written.size(), frontmost && focusError == 0 ? 1 : 0);
    if (!fallback)
        QVERIFY(m_keys->keys.isEmpty());
}

void TestAccessibilityHelper::replaceLogsFirstFiftyCharacters_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("logged");

    const QString family = u"👨‍👩‍👧"_s; // one character for the user, five code points
    QTest::newRow("empty") << QString() << QString();
    QTest::newRow("exactly fifty") << QString(50, u'a') << QString(50, u'a');
    QTest::newRow("long") << QString(49, u'a') + u"bc"_s << QString(49, u'a') + u"b"_s;
    QTest::newRow("joined emoji stay whole") << family.repeated(60) << family.repeated(50);
    QTest::newRow("combining accents") << u"e\u0301"_s.repeated(51) << u"e\u0301"_s.repeated(50);
}

void TestAccessibilityHelper::replaceLogsFirstFiftyCharacters()
{
    QFETCH(QString, text);
    QFETCH(QString, logged);
    StdoutCapture out;
    QCOMPARE(replaceNow(text, CaptureTarget {}), std::optional<bool>(true));
    QCOMPARE(out.lines().value(0),
        u"🔧 [AccessibilityHelper] replaceSelectedText called with: "_s + logged + u"..."_s);
}

void TestAccessibilityHelper::quickSuccessiveReplacementsRestoreUserClipboard()
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

void TestAccessibilityHelper::replaceOnlyIntoTheTarget_data()
{
    QTest::addColumn<Method>("method");
    QTest::addColumn<QString>("change"); // what happens between capture and Replace
    QTest::addColumn<int>("setError");
    QTest::addColumn<bool>("expected");
    QTest::addColumn<QStringList>("written");
    QTest::addColumn<bool>("pasted");
    QTest::addColumn<QString>("lastLine");
    QTest::addColumn<Formats>("clipboardAfter");

    const Formats plainRewrite { { u"text/plain"_s, "new text" } };
    const QStringList once { u"new text"_s };
    const QString success = u"✅ [AccessibilityHelper] AX replace successful"_s;
    const QString restored = u"🔧 [AccessibilityHelper] Clipboard restored"_s;
    const QString notInFront
        = u"❌ [AccessibilityHelper] Not replacing: Mousepad is not in front, the text is on the clipboard"_s;
    const QString selectionMoved
        = u"❌ [AccessibilityHelper] Not replacing: the selection in Mousepad is not the text it was"_s;

    QTest::newRow("accessibility, untouched")
        << Method::Accessibility << QString() << 0 << true << once << false << success << richUserClipboard;
    QTest::newRow("accessibility refused, pasted")
        << Method::Accessibility << QString() << AxError::AttributeUnsupported << true << once << true
        << restored << richUserClipboard;
    QTest::newRow("clipboard, pasted") << Method::Clipboard << QString() << AxError::AttributeUnsupported
                                       << true << once << true << restored << richUserClipboard;
    QTest::newRow("another window in front, nothing written")
        << Method::Accessibility << u"other window"_s << 0 << false << QStringList() << false << notInFront
        << plainRewrite;
    QTest::newRow("another window in front, nothing pasted")
        << Method::Clipboard << u"other window"_s << AxError::AttributeUnsupported << false << QStringList()
        << false << notInFront << plainRewrite;
    QTest::newRow("focus moves on before the paste")
        << Method::Clipboard << u"window changes before paste"_s << AxError::AttributeUnsupported << true
        << once << false
        << u"❌ [AccessibilityHelper] Not pasting: Mousepad is no longer in front, the text is on the clipboard"_s
        << plainRewrite;
    QTest::newRow("selection moved since capture")
        << Method::Accessibility << u"selection"_s << 0 << false << QStringList() << false
        << selectionMoved + u", the text is on the clipboard"_s << plainRewrite;
    QTest::newRow("focus moved to another field, not pasted there")
        << Method::Accessibility << u"focus"_s << AxError::AttributeUnsupported << false << once << false
        << u"❌ [AccessibilityHelper] Not pasting: Mousepad has moved its focus, the text is on the clipboard"_s
        << plainRewrite;
    QTest::newRow("write never answered, nothing pasted on top")
        << Method::Accessibility << u"write hangs"_s << 0 << false << once << false
        << u"❌ [AccessibilityHelper] Not pasting: Mousepad did not answer in time, the text is on the clipboard"_s
        << plainRewrite;

    // Handed over D-Bus: only where that same text is still selected; else the caller copies.
    QTest::newRow("handed, still selected")
        << Method::Handed << QString() << 0 << true << once << false << success << richUserClipboard;
    QTest::newRow("handed, selection changed")
        << Method::Handed << u"selection"_s << 0 << false << QStringList() << false << selectionMoved
        << richUserClipboard;

    // A terminal: Replace is a copy the caller makes; nothing is written or typed.
    QTest::newRow("terminal") << Method::Primary << QString() << 0 << false << QStringList() << false
                              << u"❌ [AccessibilityHelper] Not replacing: Mousepad is a terminal"_s
                              << richUserClipboard;
}

void TestAccessibilityHelper::replaceOnlyIntoTheTarget()
{
    QFETCH(Method, method);
    QFETCH(QString, change);
    QFETCH(int, setError);
    QFETCH(bool, expected);
    QFETCH(QStringList, written);
    QFETCH(bool, pasted);
    QFETCH(QString, lastLine);
    QFETCH(Formats, clipboardAfter);

    const Element captured { u":1.42"_s, u"/org/a11y/atspi/accessible/7"_s };
    const CaptureTarget target { method, mousepad,
        method == Method::Clipboard ? std::nullopt : std::optional<Element>(captured), u"old text"_s };
    // Same program, another of its windows: still not where the text belongs.
    const RunningApplication other { mousepad.pid, mousepad.name, mousepad.window + 1, mousepad.windowClass };
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
    m_helper->replaceSelectedText(u"new text"_s, target, [&](bool replaced) {
        ++answers;
        QCOMPARE(replaced, expected);
        if (change == u"window changes before paste")
            m_workspace->frontmost = other;
    });
    QTRY_COMPARE(answers, 1);
    settle();
    QCOMPARE(answers, 1);
    QCOMPARE(out.lines().value(out.lines().size() - 1), lastLine);
    QCOMPARE(m_accessibility->written, written);
    QCOMPARE(m_keys->keys, pasted ? QList<Key> { pasteKey } : QList<Key>());
    QCOMPARE(m_pasteboard->contents(), clipboardAfter);
}

QTEST_GUILESS_MAIN(TestAccessibilityHelper)
#include "TestAccessibilityHelper.moc"
