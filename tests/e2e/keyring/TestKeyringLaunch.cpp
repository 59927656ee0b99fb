// Faults: a credential read from or written to the wrong place, sent wrongly, or printed in a log.
#include "DesktopFixture.h"
#include "Replies.h"
#include "ScratchFiles.h"
#include "TessaryProcess.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>

using namespace Qt::StringLiterals;

// The whole program in a throw-away desktop whose keyring (gnome-keyring, started and
// unlocked by scripts/headless-session) answers: where the credential comes from, where
// it ends up, what the service is sent, and that no log carries it.
class TestKeyringLaunch : public QObject
{
    Q_OBJECT

private:
    static QString keyringEntry(const QString &name)
    {
        return QString::fromUtf8(
            Desktop::run(u"secret-tool"_s, { u"lookup"_s, u"server"_s, u"Tessary"_s, u"user"_s, name }));
    }

private Q_SLOTS:
    void initTestCase()
    {
        if (qEnvironmentVariableIsEmpty("DISPLAY"))
            QSKIP("needs the headless desktop of scripts/headless-session");
        if (!QDBusConnection::sessionBus().interface()->isServiceRegistered(u"org.freedesktop.secrets"_s))
            QSKIP("no keyring in this session (gnome-keyring is installed by scripts/install-deps)");
    }

    void credentialReachesTheService_data()
    {
        QTest::addColumn<QByteArray>("fileKey"); // api_key in the settings file from an older start
        QTest::addColumn<QString>("keyringBefore");
        QTest::addColumn<QByteArray>("serverToken"); // the local tessary-server's token file
        QTest::addColumn<QByteArray>("sent"); // the bearer the service gets
        QTest::addColumn<QString>("inKeyring");

        QTest::newRow("key from an older start moves into the keyring")
            << QByteArray("sk-e2e-older-start-7a1c9f03") << QString() << QByteArray()
            << QByteArray("sk-e2e-older-start-7a1c9f03") << u"sk-e2e-older-start-7a1c9f03"_s;
        QTest::newRow("the local server pairs by its token file")
            << QByteArray() << QString() << QByteArray("tok-e2e-paired-55b2e0d4\n")
            << QByteArray("tok-e2e-paired-55b2e0d4") << QString();
        QTest::newRow("key only in the keyring")
            << QByteArray() << u"sk-e2e-keyring-only-3f9a1c"_s << QByteArray()
            << QByteArray("sk-e2e-keyring-only-3f9a1c") << u"sk-e2e-keyring-only-3f9a1c"_s;
    }

    void credentialReachesTheService()
    {
        QFETCH(QByteArray, fileKey);
        QFETCH(QString, keyringBefore);
        QFETCH(QByteArray, serverToken);
        QFETCH(QByteArray, sent);

        FixtureServer service;
        if (!service.listen(quint16(qEnvironmentVariableIntValue("TESSARY_E2E_API_PORT"))))
            QSKIP("the end-to-end service port is taken");
        service.route("/api/v1/chat/completions", eventStream({ "Hi" }));

        QByteArray errors; // outlives the process, which may still write while it is destroyed
        // The most the log ever says.
        TessaryProcess tessary("[General]\nupdate_check_enabled=false\nhumanize_examples=mine\n"
                + (fileKey.isEmpty() ? QByteArray() : "api_key=" + fileKey + '\n'),
            { u"TESSARY_LOG=full"_s, u"QT_LOGGING_RULES=tessary.*=true"_s });
        const QString settings = tessary.path(u"Tessary/Tessary.conf"_s);
        if (!serverToken.isEmpty())
            tessary.writeFile(u"tessary-server/client-token"_s, serverToken);

        // One keyring serves every row: each starts without an entry.
        QProcess::execute(
            u"secret-tool"_s, { u"clear"_s, u"server"_s, u"Tessary"_s, u"user"_s, u"api_key"_s });
        QCOMPARE(keyringEntry(u"api_key"_s), QString());
        if (!keyringBefore.isEmpty()) {
            Desktop::run(u"secret-tool"_s,
                { u"store"_s, u"--label=Tessary"_s, u"server"_s, u"Tessary"_s, u"user"_s, u"api_key"_s,
                    u"type"_s, u"plaintext"_s },
                keyringBefore.toUtf8());
        }

        connect(&tessary, &QProcess::readyReadStandardError, &tessary,
            [&] { errors += tessary.readAllStandardError(); });
        QVERIFY(tessary.start());
        QTRY_VERIFY_WITH_TIMEOUT(tessary.log.contains(u">>> LAUNCHED"_s), 10000);

        // The key leaves the file for the keyring, and the file stays private.
        QTRY_VERIFY_WITH_TIMEOUT(!ScratchFiles::read(settings).contains("api_key"), 10000);
        QTEST(keyringEntry(u"api_key"_s), "inKeyring");
        QVERIFY(ScratchFiles::privateToOwner(settings));

        // A rewrite handed over D-Bus carries the credential to the service.
        QVERIFY(QDBusConnection::sessionBus().send(
            QDBusMessage::createMethodCall(u"app.tessary.Tessary"_s, u"/app/tessary/Tessary"_s,
                u"app.tessary.Tessary"_s, u"HumanizeSelectedText"_s)
            << u"hello there"_s));
        QTRY_VERIFY_WITH_TIMEOUT(!service.requests("/chat/completions").isEmpty(), 10000);
        QCOMPARE(service.requests("/chat/completions").constLast().header("authorization"), "Bearer " + sent);
        // The service was usable from the start, though the keyring answered after it:
        // the welcome window never opened.
        QCOMPARE(QProcess::execute(u"xdotool"_s, { u"search"_s, u"--name"_s, u"Welcome to Tessary"_s }), 1);

        // The end of the session quits as the menu does.
        tessary.terminate();
        QVERIFY(tessary.waitForFinished(5000));
        QCOMPARE(tessary.exitStatus(), QProcess::NormalExit);
        QCOMPARE(tessary.exitCode(), 0);
        const QByteArray log
            = tessary.log.toUtf8() + tessary.readAll() + errors + tessary.readAllStandardError();
        QVERIFY2(!log.contains(sent), log.constData());
    }
};

QTEST_GUILESS_MAIN(TestKeyringLaunch)
#include "TestKeyringLaunch.moc"
