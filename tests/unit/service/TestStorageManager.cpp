#include "StorageManager.h"

#include <QFile>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

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
        QTest::newRow("date stored as number") << QByteArray("[General]\nlast_version_check=42\n")
                                               << QStringList() << QString() << false << true;
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

    void storedApiBaseIsIgnored()
    {
        StorageManager storage(writeFile("[General]\napi_base=https://old.example/api/v1\n"), defaultBase);
        QCOMPARE(storage.apiBase(), defaultBase);
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
            storage.setExamples(examples);
            storage.setApiKey(u"sk-secret, with comma"_s);
            storage.setLastVersionCheck(checked);
            storage.setUpdateCheckEnabled(false);
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
        StorageManager storage(path, defaultBase);
        storage.setExamples({ u"x"_s });
        storage.setLastVersionCheck(QDateTime::currentDateTimeUtc());
        storage.setExamples({});
        storage.setLastVersionCheck({});

        const QByteArray file = contents(path);
        QVERIFY(file.contains("humanize_examples="));
        QVERIFY(!file.contains("last_version_check"));
    }

    void everyAssignmentIsAnnounced()
    {
        StorageManager storage(newPath(), defaultBase);
        QSignalSpy examples(&storage, &StorageManager::examplesChanged);
        QSignalSpy key(&storage, &StorageManager::apiKeyChanged);
        QSignalSpy enabled(&storage, &StorageManager::updateCheckEnabledChanged);
        storage.setExamples({ u"a"_s });
        storage.setApiKey(u"k"_s);
        storage.setUpdateCheckEnabled(false);
        QCOMPARE(examples.size(), 1);
        QCOMPARE(key.size(), 1);
        QCOMPARE(enabled.size(), 1);
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
