// Faults: settings misread, half written or readable by others; a server token paired where it must not.
#include "StorageManager.h"

#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <sys/stat.h>

using namespace Qt::StringLiterals;

namespace {
const QString defaultBase = u"http://127.0.0.1:8787/api/v1"_s;
}

class TestStorageManager : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_dir;
    int m_files = 0;

    // A fresh path per store: QSettings caches files by name within a process, and a
    // store reopened under a new name can only have read what is on disk.
    QString newPath() { return m_dir.filePath(u"Tessary-%1/Tessary.conf"_s.arg(++m_files)); }

    QString writeFile(const QByteArray &contents)
    {
        const QString path = newPath();
        QDir().mkpath(QFileInfo(path).absolutePath());
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly) || file.write(contents) != contents.size())
            qFatal("cannot write fixture");
        return path;
    }

    QString reopenedCopy(const QString &path)
    {
        const QString copy = newPath();
        QDir().mkpath(QFileInfo(copy).absolutePath());
        if (!QFile::copy(path, copy))
            qFatal("cannot copy settings file");
        return copy;
    }

    static bool privateToOwner(const QString &path)
    {
        constexpr auto others = QFileDevice::ReadGroup | QFileDevice::WriteGroup | QFileDevice::ExeGroup
            | QFileDevice::ReadOther | QFileDevice::WriteOther | QFileDevice::ExeOther;
        return !(QFile::permissions(path) & others);
    }

    static QByteArray contents(const QString &path)
    {
        QFile file(path);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

private Q_SLOTS:
    void loadRules_data()
    {
        QTest::addColumn<QByteArray>("file");
        QTest::addColumn<QStringList>("examples");
        QTest::addColumn<QString>("apiKey");
        QTest::addColumn<bool>("hasLastCheck");
        QTest::addColumn<bool>("updateCheckEnabled");

        QTest::newRow("no file") << QByteArray() << QStringList() << QString() << false << true;
        QTest::newRow("typed values")
            << QByteArray("[General]\nhumanize_examples=one, \"two, three\"\n"
                          "api_key=sk-123\nupdate_check_enabled=false\n"
                          "last_version_check=@DateTime(\\0\\0\\0\\x10\\0\\0"
                          "\\0\\0\\0\\0%\\x8e\\xb8\\x2\\0*\\xf8\\x1)\n")
            << QStringList { u"one"_s, u"two, three"_s } << u"sk-123"_s << true << false;
        QTest::newRow("single sample") << QByteArray("[General]\nhumanize_examples=only one\n")
                                       << QStringList { u"only one"_s } << QString() << false << true;
        QTest::newRow("empty sample list") << QByteArray("[General]\nhumanize_examples=@Invalid()\n")
                                           << QStringList() << QString() << false << true;
        QTest::newRow("sample list with a non-string")
            << QByteArray("[General]\nhumanize_examples=a, @Variant(\\0\\0\\0\\x2\\0\\0\\0\\x5)\n")
            << QStringList() << QString() << false << true;
        QTest::newRow("date stored as text") << QByteArray("[General]\nlast_version_check=yesterday\n")
                                             << QStringList() << QString() << false << true;
        QTest::newRow("stored api base ignored")
            << QByteArray("[General]\napi_base=https://old.example/api/v1\n") << QStringList() << QString()
            << false << true;
        QTest::newRow("api key stored as a list")
            << QByteArray("[General]\napi_key=a, b\n") << QStringList() << QString() << false << true;
        QTest::newRow("update flag garbage stays off")
            << QByteArray("[General]\nupdate_check_enabled=maybe\n") << QStringList() << QString() << false
            << false;
        QTest::newRow("corrupt file") << QByteArray("\xff\xfe[[[\0\0=\n=\n@Variant(\\xff") << QStringList()
                                      << QString() << false << true;
    }

    void loadRules()
    {
        QFETCH(QByteArray, file);
        QFETCH(QStringList, examples);
        QFETCH(QString, apiKey);
        QFETCH(bool, hasLastCheck);
        QFETCH(bool, updateCheckEnabled);
        const QString path = file.isNull() ? newPath() : writeFile(file);

        StorageManager storage(path, defaultBase);

        QCOMPARE(storage.examples(), examples);
        QCOMPARE(storage.apiKey(), apiKey);
        QCOMPARE(storage.lastVersionCheck().isValid(), hasLastCheck);
        QCOMPARE(storage.updateCheckEnabled(), updateCheckEnabled);
        QCOMPARE(storage.apiBase(), defaultBase);
    }

    void firstStartWritesOnlyTheUpdateFlag()
    {
        const QString path = newPath();
        {
            StorageManager storage(path, defaultBase);
        }
        QCOMPARE(contents(path), QByteArray("[General]\nupdate_check_enabled=true\n"));
        QVERIFY(privateToOwner(path));
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
        const QString path = newPath();
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
        QVERIFY(privateToOwner(path));

        StorageManager reopened(reopenedCopy(path), defaultBase);
        QCOMPARE(reopened.examples(), examples);
        QCOMPARE(reopened.apiKey(), u"sk-secret, with comma"_s);
        QCOMPARE(reopened.lastVersionCheck(), checked);
        QCOMPARE(reopened.updateCheckEnabled(), false);
    }

    void emptyListKeepsItsKeyAndAbsentDateRemovesIt()
    {
        const QString path = newPath();
        {
            StorageManager storage(path, defaultBase);
            storage.setExamples({ u"x"_s });
            storage.setLastVersionCheck(QDateTime::currentDateTimeUtc());
            storage.setExamples({});
            storage.setLastVersionCheck({});
        }

        const QByteArray file = contents(path);
        QVERIFY(file.contains("humanize_examples="));
        QVERIFY(!file.contains("last_version_check"));
    }

    // Typing writes the file once the typing pauses, by replacing it whole (a new file
    // renamed over the old one: a reader never sees half of it), and it is private
    // afterwards whatever it was before.
    void writesAreDeferredWholeAndPrivate_data()
    {
        QTest::addColumn<QFileDevice::Permissions>("before");
        const auto owner = QFileDevice::ReadOwner | QFileDevice::WriteOwner;
        QTest::newRow("private") << QFileDevice::Permissions(owner);
        QTest::newRow("readable by all") << (owner | QFileDevice::ReadGroup | QFileDevice::ReadOther);
        QTest::newRow("writable by the group") << (owner | QFileDevice::ReadGroup | QFileDevice::WriteGroup);
    }

    void writesAreDeferredWholeAndPrivate()
    {
        QFETCH(QFileDevice::Permissions, before);
        const QString path = writeFile("[General]\napi_key=sk-kept-1234\nupdate_check_enabled=true\n");
        QVERIFY(QFile::setPermissions(path, before));
        const QByteArray original = contents(path);
        const auto inode = [&path] {
            struct stat status
            {
            };
            return ::stat(QFile::encodeName(path).constData(), &status) == 0 ? status.st_ino : 0;
        };
        const auto inodeBefore = inode();

        StorageManager storage(path, defaultBase);
        QString typed;
        for (const QChar c : u"Hello there"_s) {
            typed.append(c);
            storage.setExamples({ typed });
        }
        QCOMPARE(contents(path), original);

        QTRY_VERIFY2(contents(path).contains("humanize_examples=Hello there\n"), contents(path).constData());
        QVERIFY(contents(path).contains("api_key=sk-kept-1234\n"));
        QVERIFY(inode() != inodeBefore);
        QVERIFY(privateToOwner(path));
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

        const QByteArray token("tok-0123456789abcdef\n");
        QTest::newRow("loopback, no key")
            << defaultBase << QString() << token << false << u"tok-0123456789abcdef"_s;
        QTest::newRow("localhost") << u"http://localhost:8787/api/v1"_s << QString() << token << false
                                   << u"tok-0123456789abcdef"_s;
        QTest::newRow("IPv6 loopback")
            << u"http://[::1]:8787/api/v1"_s << QString() << token << false << u"tok-0123456789abcdef"_s;
        QTest::newRow("a stored key wins") << defaultBase << u"sk-mine"_s << token << false << u"sk-mine"_s;
        QTest::newRow("another machine never gets the token")
            << u"https://rewrite.example/api/v1"_s << QString() << token << false << QString();
        QTest::newRow("a host that resolves elsewhere")
            << u"http://127.0.0.1.example/api/v1"_s << QString() << token << false << QString();
        QTest::newRow("token file others may read") << defaultBase << QString() << token << true << QString();
        QTest::newRow("no token file") << defaultBase << QString() << QByteArray() << false << QString();
    }

    void pairing()
    {
        QFETCH(QString, apiBase);
        QFETCH(QString, storedKey);
        QFETCH(QByteArray, tokenFile);
        QFETCH(bool, othersMayRead);
        QFETCH(QString, credential);

        const QString tokenPath = m_dir.filePath(u"server-%1/client-token"_s.arg(++m_files));
        if (!tokenFile.isNull()) {
            QDir().mkpath(QFileInfo(tokenPath).absolutePath());
            QFile file(tokenPath);
            QVERIFY(file.open(QIODevice::WriteOnly) && file.write(tokenFile) == tokenFile.size());
            QVERIFY(file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner
                | (othersMayRead ? QFileDevice::ReadOther : QFileDevice::Permissions())));
        }
        StorageManager storage(newPath(), apiBase, nullptr, tokenPath);
        storage.setApiKey(storedKey);

        QCOMPARE(storage.credential(), credential);
        QCOMPARE(storage.serviceUsable(), !credential.isEmpty());
        QCOMPARE(storage.apiKey(), storedKey); // the token is never shown or stored as the key
    }

    void unreadableFileLoadsDefaults()
    {
        if (geteuid() == 0)
            QSKIP("root reads files whatever their mode");
        const QString path = writeFile("[General]\napi_key=sk-1\n");
        QFile::setPermissions(path, {});
        StorageManager storage(path, defaultBase);
        QCOMPARE(storage.apiKey(), QString());
        QCOMPARE(storage.updateCheckEnabled(), true);
    }
};

QTEST_GUILESS_MAIN(TestStorageManager)
#include "TestStorageManager.moc"
