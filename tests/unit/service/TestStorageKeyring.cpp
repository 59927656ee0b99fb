// Faults: a key lost, in the wrong place, readable by others, or in a log, with or without a keyring.
#include "KeyStore.h"
#include "ScratchFiles.h"
#include "StdoutCapture.h"
#include "StorageManager.h"

#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusReply>
#include <QFile>
#include <QLoggingCategory>
#include <QProcess>
#include <QSignalSpy>
#include <QTest>

using namespace Qt::StringLiterals;

// The settings store over a real keyring: gnome-keyring-daemon, started by the test on
// the private session bus that CTest gives it (a bus that starts nothing by itself, so
// until the daemon runs, no keyring answers), with a throw-away home. What the keyring
// holds is read back with secret-tool, as another program of the user's would.
class TestStorageKeyring : public QObject
{
    Q_OBJECT

private:
    ScratchFiles m_files;
    QProcess m_daemon;
    int m_stores = 0; // a keyring entry of its own for each
    inline static QStringList s_messages;

    static void record(QtMsgType type, const QMessageLogContext &context, const QString &message)
    {
        s_messages.append(message);
        qt_message_output(type, context, message);
    }

    static bool keyringAnswers()
    {
        return QDBusConnection::sessionBus().interface()->isServiceRegistered(u"org.freedesktop.secrets"_s);
    }

    void startKeyring()
    {
        if (m_daemon.state() == QProcess::Running)
            return;
        const QString home = m_files.newPath(u"keyring-home"_s);
        QDir().mkpath(home);
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(u"HOME"_s, home);
        env.insert(u"XDG_DATA_HOME"_s, home + u"/data"_s);
        env.insert(u"XDG_CACHE_HOME"_s, home + u"/cache"_s);
        env.remove(u"XDG_RUNTIME_DIR"_s);
        m_daemon.setProcessEnvironment(env);
        m_daemon.start(
            u"gnome-keyring-daemon"_s, { u"--foreground"_s, u"--unlock"_s, u"--components=secrets"_s });
        QVERIFY2(m_daemon.waitForStarted(), "gnome-keyring-daemon is not installed (scripts/install-deps)");
        m_daemon.write("throw-away password");
        m_daemon.closeWriteChannel();
        QTRY_VERIFY_WITH_TIMEOUT(keyringAnswers(), 10000);
    }

    // The entry as the keyring hands it to any program of the user's.
    static QString lookup(const QString &service, const QString &name)
    {
        QProcess tool;
        tool.start(u"secret-tool"_s, { u"lookup"_s, u"server"_s, service, u"user"_s, name });
        if (!tool.waitForFinished(10000))
            return u"<secret-tool hangs>"_s;
        return QString::fromUtf8(tool.readAllStandardOutput());
    }

    static void waitLoaded(StorageManager &storage)
    {
        QSignalSpy loaded(&storage, &StorageManager::keysLoadedChanged);
        if (!storage.keysLoaded())
            QVERIFY(loaded.wait(15000));
        QVERIFY(storage.keysLoaded());
    }

    static void keyringWrite(KeyStore &keys, const QString &name, const QString &value)
    {
        std::optional<bool> stored;
        QObject context;
        keys.write(name, value, &context, [&stored](bool ok) { stored = ok; });
        QTRY_COMPARE_WITH_TIMEOUT(stored, std::optional(true), 10000);
    }

private Q_SLOTS:
    void initTestCase()
    {
        if (!QDBusConnection::sessionBus().isConnected())
            QSKIP("needs the private session bus that CTest runs this test on");
        qInstallMessageHandler(record);
        // Every diagnostic of ours is printed, so none can carry a key unseen.
        QLoggingCategory::setFilterRules(u"tessary.*=true"_s);
    }

    void cleanupTestCase()
    {
        if (m_daemon.state() == QProcess::Running) {
            m_daemon.terminate();
            m_daemon.waitForFinished(5000);
        }
    }

    // Where the key lives and what a restart reads, with no keyring and then with one.
    // First: the keyring daemon starts with the first row that needs it.
    void placement_data()
    {
        QTest::addColumn<bool>("keyring"); // whether a keyring answers
        QTest::addColumn<QString>("fileBefore"); // api_key in the settings file before the start
        QTest::addColumn<QString>("keyringBefore");
        QTest::addColumn<QStringList>("typed"); // assignments, one per keystroke
        QTest::addColumn<bool>("typedEarly"); // before the keyring answered
        QTest::addColumn<QString>("key"); // apiKey afterwards and after a restart

        const auto row = [](const char *name, bool keyring, const QString &key, const QStringList &typed,
                             const QString &fileBefore = {}, const QString &keyringBefore = {},
                             bool typedEarly = false) {
            QTest::newRow(name) << keyring << fileBefore << keyringBefore << typed << typedEarly << key;
        };
        row("no keyring: typed key goes to the file", false, u"sk-typed-00001111"_s,
            { u"sk-typed-00001111"_s });
        row("no keyring: typed before the answer", false, u"sk-early-00002222"_s, { u"sk-early-00002222"_s },
            {}, {}, true);
        row("no keyring: key from the file", false, u"sk-file-00003333"_s, {}, u"sk-file-00003333"_s);
        row("typed a keystroke at a time", true, u"sk-key-10002222"_s,
            { u"s"_s, u"sk"_s, u"sk-"_s, u"sk-k"_s, u"sk-ke"_s, u"sk-key-10002222"_s });
        row("typed before the answer", true, u"sk-early-10003333"_s, { u"sk-early-10003333"_s }, {},
            u"sk-ring-old"_s, true);
        row("key from the keyring", true, u"sk-ring-10004444"_s, {}, {}, u"sk-ring-10004444"_s);
        row("file key moves into the keyring", true, u"sk-file-10005555"_s, {}, u"sk-file-10005555"_s);
        row("file key is newer than the keyring's", true, u"sk-file-10006666"_s, {}, u"sk-file-10006666"_s,
            u"sk-ring-old"_s);
        row("cleared key", true, QString(), { QString() }, {}, u"sk-ring-10007777"_s);
    }

    void placement()
    {
        QFETCH(bool, keyring);
        QFETCH(QString, fileBefore);
        QFETCH(QString, keyringBefore);
        QFETCH(QStringList, typed);
        QFETCH(bool, typedEarly);
        QFETCH(QString, key);

        if (keyring)
            startKeyring();
        else
            QVERIFY2(!keyringAnswers(), "the bus started a keyring by itself");

        KeyStore keys(u"TessaryTest-%1"_s.arg(++m_stores), std::chrono::seconds(5));
        if (!keyringBefore.isEmpty())
            keyringWrite(keys, u"api_key"_s, keyringBefore);
        const QString path = fileBefore.isEmpty()
            ? m_files.newPath()
            : m_files.write("[General]\nupdate_check_enabled=true\napi_key=" + fileBefore.toUtf8() + '\n');
        s_messages.clear();
        StdoutCapture stdoutLines;
        {
            StorageManager storage(path, QString(), &keys, QString());
            const auto type = [&] {
                for (const QString &value : typed)
                    storage.setApiKey(value);
            };
            if (typedEarly)
                type();
            waitLoaded(storage);
            QCOMPARE(storage.keysInSettingsFile(), !keyring);
            if (!typedEarly)
                type();
            QCOMPARE(storage.apiKey(), key);
            QTRY_VERIFY_WITH_TIMEOUT(storage.keysSaved(), 10000);
            QCOMPARE(lookup(keys.service(), u"api_key"_s), keyring ? key : QString());
        }

        const QByteArray file = ScratchFiles::read(path);
        QVERIFY(ScratchFiles::privateToOwner(path));
        if (keyring)
            QVERIFY2(!file.contains("api_key"), file.constData()); // not even an empty entry
        else
            QVERIFY2(file.contains("api_key=" + key.toUtf8() + '\n'), file.constData());

        // The next start reads the same key and writes nothing more.
        {
            StorageManager next(path, QString(), &keys, QString());
            waitLoaded(next);
            QCOMPARE(next.apiKey(), key);
        }
        QCOMPARE(ScratchFiles::read(path), file);

        // No diagnostic and no log line carries any of the keys.
        const QStringList logs = s_messages + stdoutLines.lines();
        for (const QString &secret : typed + QStringList { fileBefore, keyringBefore, key }) {
            if (secret.size() > 5)
                QVERIFY2(!logs.join(u'\n').contains(secret), qPrintable(logs.join(u'\n')));
        }
    }

    // The program ends before the keyring confirmed the change: it is not lost, and the
    // next start makes it in the keyring.
    void changeJustBeforeTheEndIsKept_data()
    {
        QTest::addColumn<QString>("keyringBefore");
        QTest::addColumn<QString>("typed");
        QTest::newRow("key typed") << QString() << u"sk-at-the-end-0123456789"_s;
        QTest::newRow("key cleared") << u"sk-cleared-at-the-end-0123"_s << QString();
    }

    void changeJustBeforeTheEndIsKept()
    {
        QFETCH(QString, keyringBefore);
        QFETCH(QString, typed);
        startKeyring();
        KeyStore keys(u"TessaryTest-end-%1"_s.arg(++m_stores));
        if (!keyringBefore.isEmpty())
            keyringWrite(keys, u"api_key"_s, keyringBefore);
        const QString path = m_files.newPath();
        {
            StorageManager storage(path, QString(), &keys, QString());
            waitLoaded(storage);
            storage.setApiKey(typed);
        }
        QVERIFY(ScratchFiles::read(path).contains("api_key=" + typed.toUtf8() + '\n'));

        {
            StorageManager next(path, QString(), &keys, QString());
            waitLoaded(next);
            QCOMPARE(next.apiKey(), typed);
            QTRY_VERIFY(next.keysSaved());
            QCOMPARE(lookup(keys.service(), u"api_key"_s), typed);
        }
        QVERIFY(!ScratchFiles::read(path).contains("api_key"));
    }

    // Entries the program did not write itself, and a keyring that stays locked. After
    // a locked row the daemon is stopped; the next row that needs one starts a fresh one.
    void entriesOfOthers_data()
    {
        QTest::addColumn<QByteArray>("stored"); // by another program, under the same name
        QTest::addColumn<bool>("locked"); // and then the keyring locked, with no one to unlock it
        QTest::addColumn<KeyStore::Answer>("answer");
        QTest::addColumn<QString>("written");
        QTest::addColumn<bool>("writeStored");
        QTest::addColumn<int>("entriesAfter");

        QTest::newRow("another program's entry is read and changed in place")
            << QByteArray("sk-other-program-4242") << false << KeyStore::Answer::Found
            << u"sk-changed-here-4343"_s << true << 1;
        QTest::newRow("locked keyring answers without waiting for the deadline")
            << QByteArray("sk-locked-away-4444") << true << KeyStore::Answer::NoKeyring
            << u"sk-not-kept-4545"_s << false << 1;
    }

    void entriesOfOthers()
    {
        QFETCH(QByteArray, stored);
        QFETCH(bool, locked);
        QFETCH(QString, written);
        startKeyring();
        const QString service = u"TessaryTest-others-%1"_s.arg(++m_stores);
        QProcess tool;
        tool.start(u"secret-tool"_s,
            { u"store"_s, u"--label=elsewhere"_s, u"server"_s, service, u"user"_s, u"api_key"_s });
        tool.write(stored);
        tool.closeWriteChannel();
        QVERIFY(tool.waitForFinished(10000) && tool.exitCode() == 0);
        if (locked) {
            const auto call = [](const QString &method, const QVariant &argument) {
                QDBusMessage message = QDBusMessage::createMethodCall(u"org.freedesktop.secrets"_s,
                    u"/org/freedesktop/secrets"_s, u"org.freedesktop.Secret.Service"_s, method);
                message << argument;
                return QDBusConnection::sessionBus().call(message);
            };
            const QDBusReply<QDBusObjectPath> collection = call(u"ReadAlias"_s, u"default"_s);
            QVERIFY(collection.isValid());
            const QDBusMessage lock
                = call(u"Lock"_s, QVariant::fromValue(QList<QDBusObjectPath> { collection.value() }));
            QVERIFY2(lock.type() == QDBusMessage::ReplyMessage, qPrintable(lock.errorMessage()));
        }

        // A deadline far beyond the wait: a locked keyring must say so by itself.
        KeyStore keys(service, std::chrono::minutes(5));
        QObject context;
        std::optional<std::pair<KeyStore::Answer, QString>> read;
        keys.read(u"api_key"_s, &context,
            [&read](KeyStore::Answer answer, const QString &value) { read.emplace(answer, value); });
        QTRY_VERIFY_WITH_TIMEOUT(read.has_value(), 10000);
        QTEST(read->first, "answer");
        QCOMPARE(read->second, locked ? QString() : QString::fromUtf8(stored));

        std::optional<bool> writeStored;
        keys.write(u"api_key"_s, written, &context, [&writeStored](bool ok) { writeStored = ok; });
        QTRY_VERIFY_WITH_TIMEOUT(writeStored.has_value(), 10000);
        QTEST(*writeStored, "writeStored");

        if (locked) {
            m_daemon.terminate();
            QVERIFY(m_daemon.waitForFinished(5000));
            return;
        }
        QCOMPARE(lookup(service, u"api_key"_s), written);
        tool.start(
            u"secret-tool"_s, { u"search"_s, u"--all"_s, u"server"_s, service, u"user"_s, u"api_key"_s });
        QVERIFY(tool.waitForFinished(10000));
        QTEST(int(tool.readAllStandardOutput().count("secret = ")), "entriesAfter");
    }

    // Last: it stops the keyring. What is typed afterwards goes to the file, and the
    // settings window is told.
    void keyringGoneMidRun()
    {
        startKeyring();
        KeyStore keys(u"TessaryTest-gone"_s, std::chrono::seconds(3));
        const QString path = m_files.newPath();
        {
            StorageManager storage(path, QString(), &keys, QString());
            waitLoaded(storage);
            QVERIFY(!storage.keysInSettingsFile());
            m_daemon.terminate();
            QVERIFY(m_daemon.waitForFinished(5000));
            QTRY_VERIFY(!keyringAnswers());

            QSignalSpy told(&storage, &StorageManager::keysInSettingsFileChanged);
            storage.setApiKey(u"sk-after-the-keyring-0123"_s);
            QVERIFY(told.wait(10000));
            QVERIFY(storage.keysInSettingsFile());
            QCOMPARE(storage.apiKey(), u"sk-after-the-keyring-0123"_s);
        }
        QVERIFY(ScratchFiles::read(path).contains("api_key=sk-after-the-keyring-0123"));
    }
};

QTEST_GUILESS_MAIN(TestStorageKeyring)
#include "TestStorageKeyring.moc"
