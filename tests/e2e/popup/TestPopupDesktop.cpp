// Faults: the real program rewriting the wrong text, or writing into a window that went.
#include "DesktopFixture.h"
#include "PopupRig.h"
#include "Selection.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QRegularExpression>

using namespace Qt::StringLiterals;
using namespace Desktop;

// The whole road as a user takes it: a sentence selected in a real editor, the
// rewrite asked for over the session bus, the popup's buttons pressed through the
// accessibility bus (as a screen reader would), and the editor's text afterwards.

namespace {

const QString paragraph = u"First words stay. Please rewrite this sentence now. Last words stay too."_s;
const QString sentence = u"Please rewrite this sentence now."_s;

// The fixture service: one rewrite per tone, streamed in a few events.
QString rewriteFor(const QString &tone)
{
    return u"A %1 rewrite, streamed.\u00a0👍🏽"_s.arg(tone);
}

FixtureReply streamFor(const FixtureRequest &request)
{
    FixtureReply reply = PopupRig::streamed(rewriteFor(PopupRig::toneOf(request)), 6);
    reply.delay = std::chrono::milliseconds(20);
    return reply;
}

} // namespace

class TestPopupDesktop : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY2(QDBusConnection::sessionBus().isConnected(),
            "no session bus: run inside scripts/headless-session");
        QVERIFY(PopupRig::prepare(m_server, streamFor, m_atspi));
    }
    void cleanup()
    {
        m_program.reset();
        m_server.clearRequests();
    }
    void rewriteAndReplace_data()
    {
        // Off the accessibility bus, the selection is copied with Ctrl+C and the rewrite
        // pasted with Ctrl+V, through the clipboard the user still expects to find intact.
        QTest::addColumn<bool>("accessible");
        QTest::addColumn<QString>("route");
        QTest::newRow("through the accessibility bus")
            << true << u"✅ [AccessibilityHelper] AX replace successful"_s;
        QTest::newRow("through the clipboard and a paste")
            << false << u"🔧 [AccessibilityHelper] AX failed, using clipboard fallback..."_s;
    }
    void rewriteAndReplace()
    {
        QFETCH(bool, accessible);
        QFETCH(QString, route);

        Editor editor(paragraph, accessible);
        QVERIFY(editor.waitUntilActive());
        startProgram();
        QVERIFY(editor.waitUntilActive());
        keys(keysSelecting(paragraph, sentence));
        const QByteArray userClipboard = "the user's own clipboard";
        setClipboard(userClipboard);

        trigger();
        QTRY_COMPARE_WITH_TIMEOUT(rewrites().size(), 1, 15000);
        QVERIFY2(rewrites().first().body.contains(sentence.toUtf8()),
            qPrintable(QString::fromUtf8(rewrites().first().body) + u"\n"_s + log()));
        QVERIFY2(log().contains(u"🎯 [AppDelegate] Stored previous app: "_s), qPrintable(log()));
        QVERIFY(!log().contains(u"Stored previous app: Unknown"_s));

        // A tone chip and Retry each ask again, with the chip's tone in lower case.
        pressOnce(u"Casual"_s);
        QTRY_COMPARE_WITH_TIMEOUT(rewrites().size(), 2, 10000);
        // Retry and Replace wait for the rewrite to finish.
        QTRY_COMPARE_WITH_TIMEOUT(log().count(u"🏁 [StreamDelegate] Stream completed"_s), 1, 10000);
        pressOnce(u"Retry"_s);
        QTRY_COMPARE_WITH_TIMEOUT(rewrites().size(), 3, 10000);
        QStringList tones;
        for (const FixtureRequest &request : rewrites())
            tones.append(PopupRig::toneOf(request));
        QCOMPARE(tones, (QStringList { u"natural"_s, u"casual"_s, u"casual"_s }));

        QTRY_COMPARE_WITH_TIMEOUT(log().count(u"🏁 [StreamDelegate] Stream completed"_s), 2, 10000);
        pressOnce(u"Replace"_s);
        QTRY_VERIFY_WITH_TIMEOUT(log().contains(u"🔄 [PopupView] Replace result: "_s), 10000);
        QVERIFY2(log().contains(u"🔄 [PopupView] Replace result: true"_s), qPrintable(log()));
        QVERIFY2(log().contains(route), qPrintable(log()));

        QString expected = paragraph;
        expected.replace(sentence, rewriteFor(u"casual"_s));
        if (!accessible) {
            // "Replace result: true" comes before the paste: the editor has the rewrite once
            // the clipboard is back, half a second after Ctrl+V went out.
            QTRY_VERIFY2_WITH_TIMEOUT(
                log().contains(u"🔧 [AccessibilityHelper] Clipboard restored"_s), qPrintable(log()), 5000);
        }
        QCOMPARE(editor.savedText(), expected);
        QCOMPARE(clipboard(), userClipboard);
    }
    void replaceAfterTheEditorHasGone()
    {
        // The popup's editor closes while the popup is open, and another window comes to the
        // front when it goes: Replace must not write there. The rewrite waits on the clipboard.
        const QString otherText = u"Another window's own text."_s;
        Editor other(otherText, true);
        QVERIFY(other.waitUntilActive());
        Editor editor(paragraph, false);
        QVERIFY(editor.waitUntilActive());
        startProgram();
        QVERIFY(editor.waitUntilActive());
        keys(keysSelecting(paragraph, sentence));
        trigger();
        QTRY_COMPARE_WITH_TIMEOUT(log().count(u"🏁 [StreamDelegate] Stream completed"_s), 1, 15000);
        editor.stop();

        pressOnce(u"Replace"_s);
        QTRY_VERIFY_WITH_TIMEOUT(log().contains(u"🔄 [PopupView] Replace result: "_s), 10000);
        QVERIFY2(log().contains(u"❌ [AppDelegate] Could not bring back: Mousepad"_s), qPrintable(log()));
        QVERIFY2(log().contains(u"🔄 [PopupView] Replace result: false"_s), qPrintable(log()));
        QVERIFY2(!log().contains(u"replaceSelectedText called"_s), qPrintable(log()));
        QCOMPARE(QString::fromUtf8(clipboard()), rewriteFor(u"natural"_s));
        // The other window is in front now, its text as it was: a full stop typed at its end
        // is the only change it saves.
        QVERIFY(other.waitUntilActive());
        keys({ u"ctrl+End"_s, u"period"_s });
        QCOMPARE(other.savedText(), otherText + u"."_s);
    }
    void aTerminalsSelectionThroughTrigger()
    {
        // A stock xterm passes Ctrl+C to its job as an interrupt: the popup gets the
        // selection from PRIMARY, and the job still runs once the rewrite is shown. (A second
        // start opens Settings: TestLaunch.)
        Terminal terminal(u"copyme"_s);
        QVERIFY(terminal.waitUntilActive());
        QVERIFY(terminal.waitUntilReady());
        startProgram();
        const QString program = TessaryProcess::program();

        // `tessary --trigger`, as a desktop shortcut runs it, rewrites the selection.
        QVERIFY(terminal.waitUntilActive());
        terminal.selectFirstWord();
        QCOMPARE(QProcess::execute(program, { u"--trigger"_s }), 0);
        QTRY_COMPARE_WITH_TIMEOUT(rewrites().size(), 1, 15000);
        QVERIFY2(rewrites().first().body.contains("copyme"), rewrites().first().body.constData());
        QTRY_COMPARE_WITH_TIMEOUT(log().count(u"🏁 [StreamDelegate] Stream completed"_s), 1, 10000);
        QVERIFY2(terminal.jobRuns(), "the job in the terminal was interrupted");
    }
    void textHandedOverTheBus_data()
    {
        QTest::addColumn<QStringList>("environment");
        QTest::addColumn<QString>("shown"); // what the log says of the text

        const QString start = u"Grüße 👋🏽 aus der Werkstatt. Grüße 👋🏽 aus der Werksta"_s;
        QTest::newRow("exact lines asked for: the first 50 characters")
            << QStringList { u"TESSARY_LOG=full"_s } << start;
        // A pipe or a file (the journal, ~/.xsession-errors) keeps what it gets: lengths only.
        QTest::newRow("output to a pipe: their length")
            << QStringList {} << u"[%1 characters]"_s.arg(start.size());
    }
    void textHandedOverTheBus()
    {
        QFETCH(QStringList, environment);
        QFETCH(QString, shown);
        startProgram(environment);
        const auto handOver = [](const QString &text) {
            QDBusConnection::sessionBus().asyncCall(PopupRig::busCall(u"HumanizeSelectedText"_s, { text }));
        };

        // Nothing to rewrite: said in the log, no popup, no request.
        handOver(QString());
        QTRY_VERIFY_WITH_TIMEOUT(log().contains(u"❌ [Service] No text in pasteboard"_s), 10000);

        // A long text: the service gets all of it, the log at most its start.
        QString text;
        while (text.size() < 200)
            text += u"Grüße 👋🏽 aus der Werkstatt. "_s;
        handOver(text);
        QTRY_COMPARE_WITH_TIMEOUT(rewrites().size(), 1, 10000);
        QVERIFY(QString::fromUtf8(rewrites().first().body).contains(text.trimmed()));
        QTRY_COMPARE_WITH_TIMEOUT(log().count(u"🏁 [StreamDelegate] Stream completed"_s), 1, 10000);
        QVERIFY2(
            log().contains(u"🔧 [Service] Got text from service: "_s + shown + u"..."_s), qPrintable(log()));
        if (shown.startsWith(u'[')) {
            QVERIFY2(!log().contains(u"Werkstatt"_s), qPrintable(log()));
            QVERIFY2(!log().contains(u"e2e-key"_s.left(8)), qPrintable(log()));
        }

        // Over the limit: the caller hears it too, not only the one who looks at the popup.
        const QDBusMessage refused = QDBusConnection::sessionBus().call(
            PopupRig::busCall(u"HumanizeSelectedText"_s, { QString(100001, u'x') }), QDBus::Block, 10000);
        QCOMPARE(refused.type(), QDBusMessage::ErrorMessage);
        QCOMPARE(refused.errorName(), u"org.freedesktop.DBus.Error.InvalidArgs"_s);
        QVERIFY2(
            QRegularExpression(u"^This text is too long to rewrite: 100.?001 characters, where 100.?000 is "
                               "the most\\. Select a shorter part\\.$"_s)
                .match(refused.errorMessage())
                .hasMatch(),
            qPrintable(refused.errorMessage()));
        QTRY_VERIFY_WITH_TIMEOUT(log().contains(u"❌ [Service] Text too long: 100001 characters"_s), 10000);
        QCOMPARE(rewrites().size(), 1);
    }

private:
    void startProgram(const QStringList &environment = {})
    {
        QVERIFY(PopupRig::start(m_program, "[General]\napi_key=e2e-key\n", environment));
    }
    // The bus entry of a desktop shortcut.
    static void trigger() { QDBusConnection::sessionBus().asyncCall(PopupRig::busCall(u"Trigger"_s)); }
    void pressOnce(const QString &name) { QVERIFY2(PopupRig::pressOnce(m_atspi, name), qPrintable(name)); }
    // The rewrite requests only; the program also checks for updates on the same service.
    QList<FixtureRequest> rewrites() const { return m_server.requests("/chat/completions"); }
    const QString &log() const { return m_program->log; }

    FixtureServer m_server;
    AtspiClient m_atspi;
    std::unique_ptr<TessaryProcess> m_program;
};

QTEST_MAIN(TestPopupDesktop)
#include "TestPopupDesktop.moc"
