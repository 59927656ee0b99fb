// Faults: settings misread, half written or readable by others; a server token paired where it must not.
#include "ScratchFiles.h"
#include "StorageManager.h"

#include <QFile>
#include <QSignalSpy>
#include <QTest>

#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

namespace {
const QString defaultBase = u"http://127.0.0.1:8787/api/v1"_s;
}

class TestStorageManager : public QObject
{
    Q_OBJECT

private:
    ScratchFiles m_files;

private Q_SLOTS:
    void loadRules_data()
    {
        QTest::addColumn<QByteArray>("file");
        QTest::addColumn<QStringList>("examples");
        QTest::addColumn<QString>("apiKey");
        QTest::addColumn<bool>("hasLastCheck");
        QTest::addColumn<bool>("updateCheckEnabled");

        const auto row = [](const char *name, const QByteArray &file, const QStringList &examples = {},
                             const QString &apiKey = {}, bool hasLastCheck = false, bool updates = true) {
            QTest::newRow(name) << file << examples << apiKey << hasLastCheck << updates;
        };
        row("no file", QByteArray());
        row("typed values",
            "[General]\nhumanize_examples=one, \"two, three\"\napi_key=sk-123\nupdate_check_enabled=false\n"
            "last_version_check=@DateTime(\\0\\0\\0\\x10\\0\\0\\0\\0\\0\\0%\\x8e\\xb8\\x2\\0*\\xf8\\x1)\n",
            { u"one"_s, u"two, three"_s }, u"sk-123"_s, true, false);
        row("single sample", "[General]\nhumanize_examples=only one\n", { u"only one"_s });
        row("empty sample list", "[General]\nhumanize_examples=@Invalid()\n");
        row("sample list with a non-string",
            "[General]\nhumanize_examples=a, @Variant(\\0\\0\\0\\x2\\0\\0\\0\\x5)\n");
        row("date stored as text", "[General]\nlast_version_check=yesterday\n");
        row("stored api base ignored", "[General]\napi_base=https://old.example/api/v1\n");
        row("api key stored as a list", "[General]\napi_key=a, b\n");
        row("update flag garbage stays off", "[General]\nupdate_check_enabled=maybe\n", {}, {}, false, false);
        row("corrupt file", QByteArray("\xff\xfe[[[\0\0=\n=\n@Variant(\\xff", 24));
    }

    void loadRules()
    {
        QFETCH(QByteArray, file);
        QFETCH(QStringList, examples);
        QFETCH(QString, apiKey);
        QFETCH(bool, hasLastCheck);
        QFETCH(bool, updateCheckEnabled);
        const QString path = file.isNull() ? m_files.newPath() : m_files.write(file);

        {
            StorageManager storage(path, defaultBase);
            QCOMPARE(storage.examples(), examples);
            QCOMPARE(storage.apiKey(), apiKey);
            QCOMPARE(storage.lastVersionCheck().isValid(), hasLastCheck);
            QCOMPARE(storage.updateCheckEnabled(), updateCheckEnabled);
            QCOMPARE(storage.apiBase(), defaultBase);
        }
        // A first start writes the update flag alone, to a private file.
        if (file.isNull()) {
            QCOMPARE(ScratchFiles::read(path), QByteArray("[General]\nupdate_check_enabled=true\n"));
            QVERIFY(ScratchFiles::privateToOwner(path));
        }
    }

    void assignmentsPersistAcrossRestart_data()
    {
        QTest::addColumn<QStringList>("examples");
        QTest::newRow("none") << QStringList();
        QTest::newRow("one") << QStringList { u"Hey, it's me."_s };
        QTest::newRow("several with separators, quotes and lines")
            << QStringList { u"a, b"_s, u"\"quoted\"\nsecond line"_s, u""_s, u"a, b"_s, u"emoji 🚀 日本"_s };
    }

    void assignmentsPersistAcrossRestart()
    {
        QFETCH(QStringList, examples);
        const QString path = m_files.newPath();
        const QDateTime checked = QDateTime::currentDateTimeUtc().addDays(-1);
        {
            StorageManager storage(path, defaultBase);
            QSignalSpy keyChanged(&storage, &StorageManager::apiKeyChanged);
            QSignalSpy enabledChanged(&storage, &StorageManager::updateCheckEnabledChanged);
            storage.setExamples(examples);
            storage.setApiKey(u"sk-secret, with comma"_s);
            storage.setLastVersionCheck(checked);
            storage.setUpdateCheckEnabled(false);
            QCOMPARE(keyChanged.size(), 1); // the settings window shows what is stored
            QCOMPARE(enabledChanged.size(), 1);
        }
        QVERIFY(ScratchFiles::privateToOwner(path));

        // Under a new name: only what is on disk can be read back.
        const QString copy = m_files.write(ScratchFiles::read(path));
        {
            StorageManager reopened(copy, defaultBase);
            QCOMPARE(reopened.examples(), examples);
            QCOMPARE(reopened.apiKey(), u"sk-secret, with comma"_s);
            QCOMPARE(reopened.lastVersionCheck(), checked);
            QCOMPARE(reopened.updateCheckEnabled(), false);
            reopened.setLastVersionCheck({});
        }
        // An empty sample list keeps its entry; an absent date has none.
        QVERIFY(ScratchFiles::read(copy).contains("humanize_examples="));
        QVERIFY(!ScratchFiles::read(copy).contains("last_version_check"));
    }

    // Typing writes the file once the typing pauses, by replacing it whole (a new file
    // renamed over the old one: a reader never sees half of it), and it is private
    // afterwards whatever it was before.
    void writesAreDeferredWholeAndPrivate_data()
    {
        QTest::addColumn<QByteArray>("contents"); // null: no file yet
        QTest::addColumn<QFileDevice::Permissions>("before");
        const QByteArray stored = "[General]\napi_key=sk-kept-1234\nupdate_check_enabled=true\n";
        const auto owner = QFileDevice::ReadOwner | QFileDevice::WriteOwner;
        QTest::newRow("private") << stored << QFileDevice::Permissions(owner);
        QTest::newRow("readable by all")
            << stored << (owner | QFileDevice::ReadGroup | QFileDevice::ReadOther);
        QTest::newRow("writable by the group")
            << stored << (owner | QFileDevice::ReadGroup | QFileDevice::WriteGroup);
        // A first start: the file the samples (and a key, where no keyring answers) go into
        // is created private, not with what the umask leaves to everyone.
        QTest::newRow("no file yet") << QByteArray() << QFileDevice::Permissions();
    }

    void writesAreDeferredWholeAndPrivate()
    {
        QFETCH(QByteArray, contents);
        QFETCH(QFileDevice::Permissions, before);
        const bool fresh = contents.isNull();
        const QString path = fresh ? m_files.newPath() : m_files.write(contents);
        QVERIFY(fresh || QFile::setPermissions(path, before));
        const QByteArray original = ScratchFiles::read(path);
        QFile reader(path); // a reader that opened the file before the write
        QVERIFY(fresh || reader.open(QIODevice::ReadOnly));

        const mode_t usualMask = ::umask(022); // what a desktop session usually runs with
        StorageManager storage(path, defaultBase);
        ::umask(usualMask);
        QVERIFY(ScratchFiles::privateToOwner(path)); // before anything is written into it
        QString typed;
        for (const QChar c : u"Hello there"_s) {
            typed.append(c);
            storage.setExamples({ typed });
        }
        QCOMPARE(ScratchFiles::read(path), original);

        QTRY_VERIFY2(ScratchFiles::read(path).contains("humanize_examples=Hello there\n"),
            ScratchFiles::read(path).constData());
        QCOMPARE(ScratchFiles::read(path).contains("api_key=sk-kept-1234\n"), !fresh);
        if (!fresh)
            QCOMPARE(reader.readAll(), original); // still the whole old file: a new one replaced it
        QVERIFY(ScratchFiles::privateToOwner(path));
    }

    // The local tessary-server pairs by its token file: only for a service on this
    // machine, only while no key is stored, and only from a file nobody else can read.
    void pairing_data()
    {
        QTest::addColumn<QString>("apiBase");
        QTest::addColumn<QString>("storedKey");
        QTest::addColumn<QByteArray>("tokenFile"); // null: no file
        QTest::addColumn<bool>("othersMayRead");
        QTest::addColumn<QString>("credential");

        const QString paired = u"tok-0123456789abcdef"_s;
        const auto row = [](const char *name, const QString &apiBase, const QString &credential,
                             const QString &storedKey = {}, bool othersMayRead = false,
                             const QByteArray &tokenFile = "tok-0123456789abcdef\n") {
            QTest::newRow(name) << apiBase << storedKey << tokenFile << othersMayRead << credential;
        };
        row("loopback, no key", defaultBase, paired);
        row("localhost", u"http://localhost:8787/api/v1"_s, paired);
        row("IPv6 loopback", u"http://[::1]:8787/api/v1"_s, paired);
        row("a stored key wins", defaultBase, u"sk-mine"_s, u"sk-mine"_s);
        row("another machine never gets the token", u"https://rewrite.example/api/v1"_s, QString());
        row("a host that resolves elsewhere", u"http://127.0.0.1.example/api/v1"_s, QString());
        row("token file others may read", defaultBase, QString(), QString(), true);
        row("no token file", defaultBase, QString(), QString(), false, QByteArray());
    }

    void pairing()
    {
        QFETCH(QString, apiBase);
        QFETCH(QString, storedKey);
        QFETCH(QByteArray, tokenFile);
        QFETCH(bool, othersMayRead);
        QFETCH(QString, credential);

        const QString tokenPath = tokenFile.isNull() ? m_files.newPath(u"client-token"_s)
                                                     : m_files.write(tokenFile, u"client-token"_s);
        QVERIFY(tokenFile.isNull()
            || QFile::setPermissions(tokenPath,
                QFileDevice::ReadOwner | QFileDevice::WriteOwner
                    | (othersMayRead ? QFileDevice::ReadOther : QFileDevice::Permissions())));
        StorageManager storage(m_files.newPath(), apiBase, nullptr, tokenPath);
        storage.setApiKey(storedKey);

        QCOMPARE(storage.credential(), credential);
        QCOMPARE(storage.serviceUsable(), !credential.isEmpty());
        QCOMPARE(storage.apiKey(), storedKey); // the token is never shown or stored as the key
    }

    // The history is kept unless the user said otherwise, for a number of days in range;
    // the popup's Show changes and the saved instructions come back as they were left.
    void historyAndPopupChoices_data()
    {
        QTest::addColumn<QByteArray>("file");
        QTest::addColumn<bool>("historyEnabled");
        QTest::addColumn<int>("historyDays");
        QTest::addColumn<bool>("showChanges");
        QTest::addColumn<QStringList>("instructions");

        QTest::newRow("nothing stored") << QByteArray() << true << 30 << false << QStringList {};
        QTest::newRow("all stored") << QByteArray(
            "[General]\nhistory_enabled=false\nhistory_days=7\n"
            "show_changes=true\nsaved_instructions=shorter, in German\n")
                                    << false << 7 << true << QStringList { u"shorter"_s, u"in German"_s };
        QTest::newRow("one instruction") << QByteArray("[General]\nsaved_instructions=shorter\n") << true
                                         << 30 << false << QStringList { u"shorter"_s };
        QTest::newRow("days out of range")
            << QByteArray("[General]\nhistory_days=0\n") << true << 30 << false << QStringList {};
        QTest::newRow("days not a number")
            << QByteArray("[General]\nhistory_days=week\n") << true << 30 << false << QStringList {};
    }
    void historyAndPopupChoices()
    {
        QFETCH(QByteArray, file);
        QFETCH(bool, historyEnabled);
        QFETCH(int, historyDays);
        QFETCH(bool, showChanges);
        QFETCH(QStringList, instructions);

        const QString path = file.isNull() ? m_files.newPath() : m_files.write(file);
        {
            StorageManager storage(path, defaultBase);
            QCOMPARE(storage.historyEnabled(), historyEnabled);
            QCOMPARE(storage.historyDays(), historyDays);
            QCOMPARE(storage.showChanges(), showChanges);
            QCOMPARE(storage.savedInstructions(), instructions);
            // Changed, and read back by the next run.
            storage.setHistoryEnabled(!historyEnabled);
            storage.setHistoryDays(99999);
            storage.setShowChanges(!showChanges);
            storage.setSavedInstructions(instructions + QStringList { u"fix grammar only"_s });
        }
        StorageManager again(path, defaultBase);
        QCOMPARE(again.historyEnabled(), !historyEnabled);
        QCOMPARE(again.historyDays(), StorageManager::maxHistoryDays);
        QCOMPARE(again.showChanges(), !showChanges);
        QCOMPARE(again.savedInstructions(), instructions + QStringList { u"fix grammar only"_s });
    }

    void unreadableFileLoadsDefaults()
    {
        if (geteuid() == 0)
            QSKIP("root reads files whatever their mode");
        const QString path = m_files.write("[General]\napi_key=sk-1\n");
        QFile::setPermissions(path, {});
        StorageManager storage(path, defaultBase);
        QCOMPARE(storage.apiKey(), QString());
        QCOMPARE(storage.updateCheckEnabled(), true);
    }
};

QTEST_GUILESS_MAIN(TestStorageManager)
#include "TestStorageManager.moc"
