#include "AccessibilityHelper.h"
#include "FakeAccessibility.h"
#include "FakeKeySynth.h"
#include "FakePasteboard.h"
#include "FakeWorkspace.h"
#include "StdoutCapture.h"

#include <QSignalSpy>
#include <QTest>
#include <QTimer>

using namespace Qt::StringLiterals;

using Formats = FakePasteboard::Formats;
using Key = FakeKeySynth::Key;
Q_DECLARE_METATYPE(Formats)
Q_DECLARE_METATYPE(std::optional<QString>)

namespace {

const Key copyKey { Keys::C, Keys::Command };
const Key pasteKey { Keys::V, Keys::Command };

const Formats richUserClipboard { { u"text/plain"_s, "user text" }, { u"text/html"_s, "<b>user</b> text" },
    { u"image/png"_s, QByteArray("\x89PNG\r\n\x1a\n", 8) } };
const Formats imageOnly { { u"image/png"_s, QByteArray("\x89PNG\r\n\x1a\n", 8) } };
const Formats emptyText { { u"text/plain"_s, QByteArray() } };

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
    void captureWaitsForLateCopy();
    void secondCaptureJoinsTheFirst();

    void replace_data();
    void replace();
    void replaceLogsFirstFiftyCharacters_data();
    void replaceLogsFirstFiftyCharacters();
    void quickSuccessiveReplacementsRestoreUserClipboard();
    void replaceOnlyIntoTheTargetWindow_data();
    void replaceOnlyIntoTheTargetWindow();

private:
    std::optional<QString> captureNow();
    // Makes the frontmost application copy `copied` when it receives Ctrl+C; a null
    // string means it ignores the key.
    void applicationCopies(const QString &copied, int afterMs = 0);

    std::unique_ptr<FakeWorkspace> m_workspace;
    std::unique_ptr<FakeAccessibility> m_accessibility;
    std::unique_ptr<FakeKeySynth> m_keys;
    std::unique_ptr<FakePasteboard> m_pasteboard;
    std::unique_ptr<AccessibilityHelper> m_helper;
};

void TestAccessibilityHelper::init()
{
    m_workspace = std::make_unique<FakeWorkspace>();
    m_workspace->frontmost = RunningApplication { 4242, u"Mousepad"_s, 0x1200007 };
    m_accessibility = std::make_unique<FakeAccessibility>();
    m_keys = std::make_unique<FakeKeySynth>();
    m_pasteboard = std::make_unique<FakePasteboard>();
    m_helper = std::make_unique<AccessibilityHelper>(*m_workspace, *m_accessibility, *m_keys, *m_pasteboard);
}

void TestAccessibilityHelper::cleanup()
{
    m_helper.reset();
}

std::optional<QString> TestAccessibilityHelper::captureNow()
{
    bool answered = false;
    std::optional<QString> result;
    m_helper->captureSelectedText([&](const std::optional<QString> &text) {
        QVERIFY(!answered);
        answered = true;
        result = text;
    });
    [&] { QTRY_VERIFY_WITH_TIMEOUT(answered, 3000); }();
    return result;
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
    QTest::addColumn<bool>("frontmost");
    QTest::addColumn<int>("focusError");
    QTest::addColumn<std::optional<QString>>("axSelection");
    QTest::addColumn<QString>("copied"); // null: the application ignores Ctrl+C
    QTest::addColumn<Formats>("userClipboard");
    QTest::addColumn<std::optional<QString>>("expected");
    QTest::addColumn<Formats>("clipboardAfter");

    const auto none = std::optional<QString>();
    const auto text = [](const QString &s) { return std::optional<QString>(s); };
    const QString ignores;

    // The accessibility bus answers: the clipboard is never touched.
    QTest::newRow("selection through accessibility")
        << true << 0 << text(u"B"_s) << u"never"_s << richUserClipboard << text(u"B"_s) << richUserClipboard;
    QTest::newRow("blank selection returned untrimmed")
        << true << 0 << text(u"  \n "_s) << ignores << richUserClipboard << text(u"  \n "_s)
        << richUserClipboard;

    // It does not: copy, and put back everything the user had.
    QTest::newRow("empty accessible selection")
        << true << 0 << text(QString()) << u"B"_s << richUserClipboard << text(u"B"_s) << richUserClipboard;
    QTest::newRow("no text interface")
        << true << 0 << none << u"B"_s << imageOnly << text(u"B"_s) << imageOnly;
    QTest::newRow("focus unavailable")
        << true << AxError::Failure << text(u"stale"_s) << u"B"_s << emptyText << text(u"B"_s) << emptyText;
    QTest::newRow("no frontmost application")
        << false << 0 << text(u"X"_s) << u"B"_s << richUserClipboard << text(u"B"_s) << richUserClipboard;
    QTest::newRow("selection equals clipboard text")
        << true << 0 << none << u"user text"_s << richUserClipboard << text(u"user text"_s)
        << richUserClipboard;
    QTest::newRow("copy ignored") << true << 0 << none << ignores << richUserClipboard << none
                                  << richUserClipboard;
    QTest::newRow("application copies nothing")
        << true << 0 << none << QString(u""_s) << richUserClipboard << none << richUserClipboard;

    // With nothing of the user's to restore, the copy stays where it landed.
    QTest::newRow("empty clipboard keeps the copy")
        << true << 0 << none << u"B"_s << Formats() << text(u"B"_s) << Formats { { u"text/plain"_s, "B" } };
    QTest::newRow("empty clipboard, copy ignored")
        << true << 0 << none << ignores << Formats() << none << Formats();
}

void TestAccessibilityHelper::capture()
{
    QFETCH(bool, frontmost);
    QFETCH(int, focusError);
    QFETCH(std::optional<QString>, axSelection);
    QFETCH(QString, copied);
    QFETCH(Formats, userClipboard);
    QFETCH(std::optional<QString>, expected);
    QFETCH(Formats, clipboardAfter);

    if (!frontmost)
        m_workspace->frontmost.reset();
    m_accessibility->focus.error = focusError;
    m_accessibility->selection = axSelection;
    applicationCopies(copied);
    m_pasteboard->setContents(userClipboard);
    const int countBefore = m_pasteboard->changeCount();

    QCOMPARE(captureNow(), expected);
    QCOMPARE(m_pasteboard->contents(), clipboardAfter);

    const bool viaAccessibility = frontmost && focusError == 0 && axSelection && !axSelection->isEmpty();
    QCOMPARE(m_keys->keys, viaAccessibility ? QList<Key>() : QList<Key> { copyKey });
    if (viaAccessibility)
        QCOMPARE(m_pasteboard->changeCount(), countBefore);
}

void TestAccessibilityHelper::captureWaitsForLateCopy()
{
    // Slow applications answer Ctrl+C after several polls; the user's clipboard must stay
    // saved until then, and the caller must not be answered before.
    m_accessibility->selection.reset();
    m_pasteboard->setContents(richUserClipboard);
    applicationCopies(u"late"_s, 400);
    bool answered = false;
    std::optional<QString> result;
    m_helper->captureSelectedText([&](const std::optional<QString> &text) {
        answered = true;
        result = text;
    });
    QVERIFY(!answered);
    QTRY_VERIFY(answered);
    QCOMPARE(result, std::optional<QString>(u"late"_s));
    QCOMPARE(m_pasteboard->contents(), richUserClipboard);
}

void TestAccessibilityHelper::secondCaptureJoinsTheFirst()
{
    m_accessibility->selection.reset();
    m_pasteboard->setContents(richUserClipboard);
    applicationCopies(u"B"_s, 100);
    QList<std::optional<QString>> answers;
    m_helper->captureSelectedText([&](const auto &text) { answers.append(text); });
    m_helper->captureSelectedText([&](const auto &text) { answers.append(text); });
    QTRY_COMPARE(answers.size(), 2);
    QCOMPARE(answers.at(0), std::optional<QString>(u"B"_s));
    QCOMPARE(answers.at(1), std::optional<QString>(u"B"_s));
    QCOMPARE(m_keys->keys.size(), 1);
    QCOMPARE(m_pasteboard->contents(), richUserClipboard);

    // Finished captures do not swallow the next one.
    QCOMPARE(captureNow(), std::optional<QString>(u"B"_s));
    QCOMPARE(m_keys->keys.size(), 2);
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
    QTest::newRow("refused, image restored")
        << true << u"Mousepad"_s << 0 << AxError::AttributeUnsupported << imageOnly << true
        << fallback + QStringList { restored } << imageOnly;
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
    QCOMPARE(m_helper->replaceSelectedText(u"new text"_s), expected);
    const bool fallback = expected && setError != 0;
    // The result is known before any paste happens.
    QVERIFY(m_keys->keys.isEmpty());
    if (fallback) {
        QCOMPARE(m_pasteboard->contents(), ourText(u"new text"_s));
        QTRY_COMPARE(m_keys->keys, QList<Key> { pasteKey });
        QCOMPARE(clipboardAtPaste, ourText(u"new text"_s));
        QTRY_COMPARE(m_pasteboard->contents(), clipboardAfter);
        // Let a restore that should not happen have its chance to show up.
        QTest::qWait(700);
    }
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
    QTest::newRow("short") << u"Hi"_s << u"Hi"_s;
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
    QVERIFY(m_helper->replaceSelectedText(text));
    QCOMPARE(out.lines().value(0),
        u"🔧 [AccessibilityHelper] replaceSelectedText called with: "_s + logged + u"..."_s);
}

void TestAccessibilityHelper::quickSuccessiveReplacementsRestoreUserClipboard()
{
    m_accessibility->setError = AxError::AttributeUnsupported;
    m_pasteboard->setContents(richUserClipboard);
    QList<Formats> pasted;
    m_keys->onPost = [&](int, quint64) { pasted.append(m_pasteboard->contents()); };

    QVERIFY(m_helper->replaceSelectedText(u"first"_s));
    QTRY_COMPARE(pasted.size(), 1);
    QVERIFY(m_helper->replaceSelectedText(u"second"_s));
    QTRY_COMPARE(pasted.size(), 2);
    QCOMPARE(pasted, (QList<Formats> { ourText(u"first"_s), ourText(u"second"_s) }));
    QTRY_COMPARE(m_pasteboard->contents(), richUserClipboard);

    // The second paste is still waiting for the user's keys when the first one's restore
    // comes due: that restore must not pull the rewrite from under it.
    QVERIFY(m_helper->replaceSelectedText(u"third"_s));
    QTRY_COMPARE(pasted.size(), 3);
    m_keys->holdPosts = true;
    QVERIFY(m_helper->replaceSelectedText(u"fourth"_s));
    QTRY_COMPARE(pasted.size(), 4);
    QTest::qWait(700);
    QCOMPARE(m_pasteboard->contents(), ourText(u"fourth"_s));
    m_keys->finishPosts();
    QTRY_COMPARE(m_pasteboard->contents(), richUserClipboard);
    m_keys->holdPosts = false;

    // Once everything is restored, a new replacement saves the clipboard afresh.
    m_pasteboard->setContents(imageOnly);
    QVERIFY(m_helper->replaceSelectedText(u"fifth"_s));
    QTRY_COMPARE(pasted.size(), 5);
    QTRY_COMPARE(m_pasteboard->contents(), imageOnly);
}

void TestAccessibilityHelper::replaceOnlyIntoTheTargetWindow_data()
{
    QTest::addColumn<bool>("targetInFrontAtCall");
    QTest::addColumn<bool>("focusMovesBeforePaste");
    QTest::addColumn<int>("setError");
    QTest::addColumn<QString>("lastLine");
    QTest::addColumn<Formats>("clipboardAfter");

    const Formats plainRewrite { { u"text/plain"_s, "new text" } };
    QTest::newRow("target in front, pasted")
        << true << false << AxError::AttributeUnsupported << u"🔧 [AccessibilityHelper] Clipboard restored"_s
        << richUserClipboard;
    QTest::newRow("another window in front, nothing written")
        << false << false << AxError::Success
        << u"❌ [AccessibilityHelper] Not replacing: Mousepad is not in front, the text is on the clipboard"_s
        << plainRewrite;
    QTest::newRow("another window in front, nothing pasted")
        << false << false << AxError::AttributeUnsupported
        << u"❌ [AccessibilityHelper] Not replacing: Mousepad is not in front, the text is on the clipboard"_s
        << plainRewrite;
    QTest::newRow("focus moves on before the paste")
        << true << true << AxError::AttributeUnsupported
        << u"❌ [AccessibilityHelper] Not pasting: Mousepad is no longer in front, the text is on the clipboard"_s
        << plainRewrite;
}

void TestAccessibilityHelper::replaceOnlyIntoTheTargetWindow()
{
    QFETCH(bool, targetInFrontAtCall);
    QFETCH(bool, focusMovesBeforePaste);
    QFETCH(int, setError);
    QFETCH(QString, lastLine);
    QFETCH(Formats, clipboardAfter);

    const RunningApplication target = *m_workspace->frontmost;
    // Same program, another of its windows: still not where the text belongs.
    const RunningApplication other { target.pid, target.name, target.window + 1 };
    if (!targetInFrontAtCall)
        m_workspace->frontmost = other;
    m_accessibility->setError = setError;
    m_pasteboard->setContents(richUserClipboard);

    StdoutCapture out;
    const bool replaced = m_helper->replaceSelectedText(u"new text"_s, target);
    QCOMPARE(replaced, targetInFrontAtCall);
    if (focusMovesBeforePaste)
        m_workspace->frontmost = other;
    QTRY_COMPARE(out.lines().value(out.lines().size() - 1), lastLine);
    // Nothing late may type or restore.
    QTest::qWait(700);
    QCOMPARE(out.lines().constLast(), lastLine);
    QCOMPARE(m_keys->keys.isEmpty(), !targetInFrontAtCall || focusMovesBeforePaste);
    QCOMPARE(m_accessibility->written.size(), targetInFrontAtCall ? 1 : 0);
    QCOMPARE(m_pasteboard->contents(), clipboardAfter);
}

QTEST_GUILESS_MAIN(TestAccessibilityHelper)
#include "TestAccessibilityHelper.moc"
