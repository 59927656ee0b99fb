// Faults: the shortcut waiting for the accessibility bus, a terminal's job interrupted, a terminal's
// rewrite missing from PRIMARY (its Shift+Insert), the bus called off where capture never needed it.
#include "DesktopFixture.h"
#include "Replies.h"
#include "TessaryProcess.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusVariant>

using namespace Qt::StringLiterals;
using namespace Desktop;

// A session of terminals and a window manager, as i3 or openbox users have it: the
// accessibility switch off and no application on the bus. The real program in it, the
// real key grab, a stock xterm, and the fixture service.
class TestShortcutWithoutAccessibility : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY2(QDBusConnection::sessionBus().isConnected(),
            "no session bus: run inside scripts/headless-session --no-accessibility");
        QVERIFY(qEnvironmentVariableIsEmpty("QT_LINUX_ACCESSIBILITY_ALWAYS_ON"));
        QVERIFY(m_server.listen(quint16(qEnvironmentVariableIntValue("TESSARY_E2E_API_PORT"))));
        m_server.route("/api/v1/chat/completions", eventStream({ "Rewritten ", "by the ", "service" }));
    }

    void ctrlAltHOverATerminalsWord()
    {
        Terminal terminal(u"copyme and more"_s);
        QVERIFY(terminal.waitUntilActive());
        QVERIFY(terminal.waitUntilReady());

        TessaryProcess program("[General]\napi_key=e2e-key\n");
        QVERIFY(program.start());
        // The grab is taken before the samples line: no wait for any bus comes between.
        QTRY_VERIFY_WITH_TIMEOUT(program.log.contains(u"StorageManager.shared.examples.isEmpty"_s), 10000);
        QVERIFY2(!switchOn(), "the session's accessibility switch is on");

        QVERIFY(terminal.waitUntilActive());
        terminal.selectFirstWord();
        keys({ u"ctrl+alt+h"_s });
        QTRY_COMPARE_WITH_TIMEOUT(rewrites().size(), 1, 10000);
        QVERIFY2(rewrites().constFirst().body.contains("copyme"), rewrites().constFirst().body.constData());
        QTRY_VERIFY_WITH_TIMEOUT(program.log.contains(u"🏁 [StreamDelegate] Stream completed"_s), 10000);

        // The popup has the keyboard: Replace, which in a terminal leaves the rewrite for its paste.
        QTRY_COMPARE_WITH_TIMEOUT(windowPid(activeWindow()), program.processId(), 10000);
        keys({ u"ctrl+Return"_s });
        QTRY_VERIFY_WITH_TIMEOUT(program.log.contains(u"🔄 [PopupView] Replace called"_s), 10000);
        QTRY_COMPARE_WITH_TIMEOUT(clipboard(), QByteArray("Rewritten by the service"), 10000);
        QCOMPARE(run(u"xclip"_s, { u"-selection"_s, u"primary"_s, u"-o"_s }),
            QByteArray("Rewritten by the service"));
        QVERIFY2(terminal.jobRuns(), "the job in the terminal was interrupted");

        // Capture never needed the bus here: nothing says it is off.
        const QString errors = QString::fromUtf8(program.readAllStandardError());
        QVERIFY2(!errors.contains(u"accessibility"_s, Qt::CaseInsensitive), qPrintable(errors));
    }

private:
    // What the desktop's switch says; false also where no bus answers.
    static bool switchOn()
    {
        QDBusMessage get = QDBusMessage::createMethodCall(
            u"org.a11y.Bus"_s, u"/org/a11y/bus"_s, u"org.freedesktop.DBus.Properties"_s, u"Get"_s);
        get << u"org.a11y.Status"_s << u"IsEnabled"_s;
        const QDBusMessage reply = QDBusConnection::sessionBus().call(get, QDBus::Block, 5000);
        return reply.type() == QDBusMessage::ReplyMessage
            && reply.arguments().value(0).value<QDBusVariant>().variant().toBool();
    }
    QList<FixtureRequest> rewrites() const { return m_server.requests("/chat/completions"); }

    FixtureServer m_server;
};

QTEST_MAIN(TestShortcutWithoutAccessibility)
#include "TestShortcutWithoutAccessibility.moc"
