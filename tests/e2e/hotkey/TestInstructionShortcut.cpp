// Faults: a saved instruction's shortcut not grabbed, rewriting with the tone instead of its
// words, with another instruction's words, or taking Ctrl+Alt+H's place; the desktop's command
// line losing the words on the way; the words in the program's log.
#include "DesktopFixture.h"
#include "Replies.h"
#include "TessaryProcess.h"

#include <QDBusConnection>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

using namespace Qt::StringLiterals;
using namespace Desktop;

// The whole program in an X session with mousepad in front: two saved instructions with
// shortcuts of their own, pressed over a selection, reach the fixture service as the
// request's instruction.
class TestInstructionShortcut : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY2(QDBusConnection::sessionBus().isConnected(),
            "no session bus: run inside scripts/headless-session");
        QVERIFY(m_server.listen(quint16(qEnvironmentVariableIntValue("TESSARY_E2E_API_PORT"))));
        m_server.route("/api/v1/chat/completions", eventStream({ "Schick ", "den Bericht" }));
    }

    void rewritesWithItsInstruction_data()
    {
        QTest::addColumn<QStringList>("press"); // xdotool's keys; empty: the desktop's command line
        QTest::addColumn<QString>("instruction"); // in the request; empty: none, the tone

        QTest::newRow("the first one's Ctrl+Alt+J") << QStringList { u"ctrl+alt+j"_s } << u"in German"_s;
        QTest::newRow("the second one's Ctrl+Shift+F5")
            << QStringList { u"ctrl+shift+F5"_s } << u"fix grammar only"_s;
        QTest::newRow("Ctrl+Alt+H stays the tone's") << QStringList { u"ctrl+alt+h"_s } << QString();
        QTest::newRow("tessary --trigger --instruction") << QStringList {} << u"shorter"_s;
    }
    void rewritesWithItsInstruction()
    {
        QFETCH(QStringList, press);
        QFETCH(QString, instruction);
        m_server.clearRequests();

        Editor editor(u"Could you send me the report by Friday?"_s, true);
        QVERIFY(editor.waitUntilActive());
        TessaryProcess program("[General]\napi_key=e2e-key\nsaved_instructions=in German, fix grammar only\n"
                               "instruction_shortcuts=Ctrl+Alt+J, Ctrl+Shift+F5\n");
        QVERIFY(program.start());
        QTRY_VERIFY_WITH_TIMEOUT(program.log.contains(u"StorageManager.shared.examples.isEmpty"_s), 10000);

        QVERIFY(editor.waitUntilActive());
        keys({ u"ctrl+a"_s });
        if (press.isEmpty()) {
            QCOMPARE(QProcess::execute(
                         TessaryProcess::program(), { u"--trigger"_s, u"--instruction"_s, instruction }),
                0);
        } else {
            keys(press);
        }
        QTRY_COMPARE_WITH_TIMEOUT(rewrites().size(), 1, 10000);
        const QJsonObject body = QJsonDocument::fromJson(rewrites().constFirst().body).object();
        QVERIFY2(body.value("messages"_L1).toArray().count() == 1, rewrites().constFirst().body.constData());
        QVERIFY2(body.value("messages"_L1)[0]["content"_L1].toString().contains(u"report by Friday"_s),
            rewrites().constFirst().body.constData());
        QCOMPARE(body.value("instruction"_L1).toString(), instruction);
        QCOMPARE(body.contains("instruction"_L1), !instruction.isEmpty());
        QTRY_VERIFY_WITH_TIMEOUT(program.log.contains(u"🏁 [StreamDelegate] Stream completed"_s), 10000);
        // One press, one rewrite: the key did not also reach Ctrl+Alt+H's handler.
        QCOMPARE(rewrites().size(), 1);
        if (!instruction.isEmpty())
            QVERIFY2(!program.log.contains(instruction), qPrintable(program.log));
    }

private:
    QList<FixtureRequest> rewrites() const { return m_server.requests("/chat/completions"); }

    FixtureServer m_server;
};

QTEST_MAIN(TestInstructionShortcut)
#include "TestInstructionShortcut.moc"
