// Faults: a popup the keyboard cannot walk or act on, a chip that does not say it is chosen,
// a tone key that asks for another tone, Copy by keyboard that copies nothing.
#include "DesktopFixture.h"
#include "PopupRig.h"

#include <QDBusConnection>
#include <QDBusMessage>

using namespace Qt::StringLiterals;
using namespace Desktop;

// The popup with the keyboard only, as a user without a mouse meets it on a real desktop:
// keys typed with xdotool, what has the keyboard and what is chosen read from the
// accessibility bus, as a screen reader reads them.

namespace {

using PopupRig::toneOf;

QString rewriteFor(const QString &tone)
{
    return u"A %1 rewrite.\u00a0👍🏽"_s.arg(tone);
}

FixtureReply streamFor(const FixtureRequest &request)
{
    return PopupRig::streamed(rewriteFor(toneOf(request)));
}

} // namespace

class TestPopupKeyboard : public QObject
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

    void keyboardOnly()
    {
        open(u"Please rewrite this sentence now."_s);
        QTRY_COMPARE_WITH_TIMEOUT(completed(), 1, 15000);

        // The keyboard starts on the chosen tone, which says it is the chosen one.
        QTRY_COMPARE_WITH_TIMEOUT(m_atspi.focused(), u"Natural"_s, 10000);
        QCOMPARE(m_atspi.checked(u"Natural"_s), std::optional<bool>(true));
        QCOMPARE(m_atspi.checked(u"Casual"_s), std::optional<bool>(false));
        QVERIFY2(m_atspi.description(u"Natural"_s).startsWith(u"Selected"_s),
            qPrintable(m_atspi.description(u"Natural"_s)));

        // Tab walks every tone, the instruction and every button in reading order, and comes
        // round again.
        for (const QString &next : { u"Casual"_s, u"Professional"_s, u"Punchy"_s, u"Warm"_s, u"Instruction"_s,
                 u"Retry"_s, u"Copy"_s, u"Replace"_s, u"Close"_s, u"Natural"_s }) {
            keys({ u"Tab"_s });
            QTRY_COMPARE_WITH_TIMEOUT(m_atspi.focused(), next, 5000);
        }
        QCOMPARE(rewrites().size(), 1); // walking asks for nothing

        // Right moves to Casual; Space asks for a casual rewrite, and Casual is the chosen one.
        keys({ u"Right"_s });
        QTRY_COMPARE_WITH_TIMEOUT(m_atspi.focused(), u"Casual"_s, 5000);
        keys({ u"space"_s });
        QTRY_COMPARE_WITH_TIMEOUT(rewrites().size(), 2, 10000);
        QCOMPARE(toneOf(rewrites().last()), u"casual"_s);
        QTRY_COMPARE_WITH_TIMEOUT(m_atspi.checked(u"Casual"_s), std::optional<bool>(true), 5000);
        QCOMPARE(m_atspi.checked(u"Natural"_s), std::optional<bool>(false));
        QTRY_COMPARE_WITH_TIMEOUT(completed(), 2, 10000);

        // Tab on to Copy, and Return copies the casual rewrite.
        for (int i = 0; i < 6; ++i)
            keys({ u"Tab"_s });
        QTRY_COMPARE_WITH_TIMEOUT(m_atspi.focused(), u"Copy"_s, 5000);
        setClipboard("the user's own clipboard");
        keys({ u"Return"_s });
        QTRY_COMPARE_WITH_TIMEOUT(QString::fromUtf8(clipboard()), rewriteFor(u"casual"_s), 5000);

        // Alt+5 asks for a warm rewrite from wherever the keyboard is.
        keys({ u"alt+5"_s });
        QTRY_COMPARE_WITH_TIMEOUT(rewrites().size(), 3, 10000);
        QCOMPARE(toneOf(rewrites().last()), u"warm"_s);
        QTRY_COMPARE_WITH_TIMEOUT(m_atspi.focused(), u"Warm"_s, 5000);
        QTRY_COMPARE_WITH_TIMEOUT(completed(), 3, 10000);

        // Tab to the instruction, words of the user's own and Return: rewritten with them.
        keys({ u"Tab"_s });
        QTRY_COMPARE_WITH_TIMEOUT(m_atspi.focused(), u"Instruction"_s, 5000);
        keys({ u"s"_s, u"h"_s, u"o"_s, u"r"_s, u"t"_s, u"e"_s, u"r"_s, u"Return"_s });
        QTRY_COMPARE_WITH_TIMEOUT(rewrites().size(), 4, 10000);
        QVERIFY2(rewrites().last().body.contains(R"("instruction":"shorter")"),
            rewrites().last().body.constData());
        QTRY_COMPARE_WITH_TIMEOUT(m_atspi.checked(u"Warm"_s), std::optional<bool>(false), 5000);

        // Escape closes the popup: nothing of it has the keyboard any more.
        keys({ u"Escape"_s });
        QTRY_VERIFY_WITH_TIMEOUT(!m_atspi.shows(u"Warm"_s), 5000);
    }

private:
    // The text handed over the session bus, as a desktop's own shortcut does.
    void open(const QString &text)
    {
        QVERIFY(PopupRig::start(m_program, "[General]\napi_key=e2e-key\n"));
        QDBusConnection::sessionBus().asyncCall(PopupRig::busCall(u"HumanizeSelectedText"_s, { text }));
    }
    int completed() const { return int(m_program->log.count(u"🏁 [StreamDelegate] Stream completed"_s)); }
    // The rewrite requests only; the program also checks for updates on the same service.
    QList<FixtureRequest> rewrites() const { return m_server.requests("/chat/completions"); }

    FixtureServer m_server;
    AtspiClient m_atspi;
    std::unique_ptr<TessaryProcess> m_program;
};

QTEST_MAIN(TestPopupKeyboard)
#include "TestPopupKeyboard.moc"
