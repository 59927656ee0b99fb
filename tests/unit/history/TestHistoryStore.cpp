#include "HistoryStore.h"
#include "ScratchFiles.h"

#include <QSignalSpy>
#include <QSqlDatabase>
#include <QSqlQuery>
#include <QTest>

#include <sys/stat.h>

using namespace Qt::StringLiterals;

namespace {
const QDateTime now = QDateTime::currentDateTimeUtc();

// An entry `daysAgo` whole days old, and an hour: the store's own clock has moved on a
// little when it looks.
HistoryEntry entry(const QString &original, const QString &result = u"rewritten"_s, int daysAgo = 0)
{
    return { 0, original, result, u"natural"_s, u"mousepad"_s, now.addDays(-daysAgo).addSecs(3600) };
}

QStringList originals(const QList<HistoryEntry> &entries)
{
    QStringList list;
    for (const HistoryEntry &e : entries)
        list << e.original;
    return list;
}

// What the store holds now for `text`: calls before this one are answered first, as
// the store's thread takes them in order.
QList<HistoryEntry> searchFor(HistoryStore &store, const QString &text = {})
{
    QSignalSpy found(&store, &HistoryStore::found);
    const quint64 serial = store.search(text);
    for (;;) {
        if (found.isEmpty() && !found.wait(5000))
            return { { -1, u"no answer"_s, {}, {}, {}, {} } };
        const QList<QVariant> answer = found.takeFirst();
        if (answer.at(0).toULongLong() == serial)
            return answer.at(1).value<QList<HistoryEntry>>();
    }
}

// Waits for the store to report a failure of this kind (None: to report that it works).
bool waitForFailure(HistoryStore &store, HistoryFailure::Kind kind)
{
    QSignalSpy changed(&store, &HistoryStore::failureChanged);
    while (store.failure().kind != kind) {
        if (!changed.wait(5000))
            return false;
    }
    return true;
}
} // namespace

class TestHistoryStore : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void retention_data();
    void retention();
    void search_data();
    void search();
    void remove_data();
    void remove();
    void switchedOffKeepsNothing();
    void damagedFile_data();
    void damagedFile();
    void lockedDatabase();
    void fileMode_data();
    void fileMode();

private:
    ScratchFiles m_files;
};

void TestHistoryStore::retention_data()
{
    QTest::addColumn<int>("days");
    QTest::addColumn<QList<int>>("ages"); // days ago, one entry each
    QTest::addColumn<QStringList>("kept");

    QTest::newRow("all recent") << 30 << QList<int> { 0, 1, 29 } << QStringList { u"0"_s, u"1"_s, u"29"_s };
    QTest::newRow("older ones go") << 7 << QList<int> { 2, 6, 8, 40 } << QStringList { u"2"_s, u"6"_s };
    QTest::newRow("the last day is kept") << 1 << QList<int> { 0, 1, 2 } << QStringList { u"0"_s, u"1"_s };
    QTest::newRow("none left") << 3 << QList<int> { 5, 9 } << QStringList {};
}

void TestHistoryStore::retention()
{
    QFETCH(int, days);
    QFETCH(QList<int>, ages);
    QFETCH(QStringList, kept);

    HistoryStore store(m_files.newPath(u"history.sqlite"_s));
    for (int age : ages)
        store.add(entry(QString::number(age), {}, age));
    store.setRetentionDays(days);
    QCOMPARE(originals(searchFor(store)), kept);
}

void TestHistoryStore::search_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QStringList>("matches"); // newest first

    QTest::newRow("everything, newest first")
        << QString()
        << QStringList { u"dear team"_s, u"50% off_sale"_s, u"Meeting at noon"_s, u"old note"_s };
    QTest::newRow("in the original") << u"noon"_s << QStringList { u"Meeting at noon"_s };
    QTest::newRow("in the result") << u"regards"_s << QStringList { u"dear team"_s };
    QTest::newRow("either side") << u"note"_s << QStringList { u"old note"_s };
    QTest::newRow("any case") << u"MEETING"_s << QStringList { u"Meeting at noon"_s };
    QTest::newRow("percent is a character") << u"50%"_s << QStringList { u"50% off_sale"_s };
    QTest::newRow("underscore is a character") << u"f_s"_s << QStringList { u"50% off_sale"_s };
    QTest::newRow("backslash") << u"\\"_s << QStringList {};
    QTest::newRow("quote") << u"'"_s << QStringList {};
    QTest::newRow("nothing") << u"zebra"_s << QStringList {};
}

void TestHistoryStore::search()
{
    QFETCH(QString, text);
    QFETCH(QStringList, matches);

    HistoryStore store(m_files.newPath(u"history.sqlite"_s));
    store.add(entry(u"old note"_s, u"Two safes and a note"_s, 3)); // "f_s", were _ a wildcard
    store.add(entry(u"Meeting at noon"_s, u"We meet at twelve"_s, 2));
    store.add(entry(u"50% off_sale"_s, u"Half price"_s, 1));
    store.add(entry(u"dear team"_s, u"5000 kind regards"_s, 0)); // "50%", were % one
    QCOMPARE(originals(searchFor(store, text)), matches);
}

void TestHistoryStore::remove_data()
{
    QTest::addColumn<QString>("removed"); // an original, or "*" for all
    QTest::addColumn<QStringList>("left");

    QTest::newRow("the newest") << u"c"_s << QStringList { u"b"_s, u"a"_s };
    QTest::newRow("the middle") << u"b"_s << QStringList { u"c"_s, u"a"_s };
    QTest::newRow("all") << u"*"_s << QStringList {};
}

void TestHistoryStore::remove()
{
    QFETCH(QString, removed);
    QFETCH(QStringList, left);

    const QString path = m_files.newPath(u"history.sqlite"_s);
    {
        HistoryStore store(path);
        for (const QString &text : { u"a"_s, u"b"_s, u"c"_s })
            store.add(entry(text, u"rewritten "_s + text, 3 - int(text.at(0).unicode() - 'a')));
        const QList<HistoryEntry> entries = searchFor(store);
        QSignalSpy removedSpy(&store, &HistoryStore::removed);
        if (removed == u"*"_s)
            store.clear();
        for (const HistoryEntry &e : entries) {
            if (e.original == removed)
                store.remove(e.id);
        }
        QVERIFY(removedSpy.wait(5000));
    }
    // Gone from the file, not only from this run.
    HistoryStore reopened(path);
    QCOMPARE(originals(searchFor(reopened)), left);
    // Deleted text is overwritten, not left in the file's free pages.
    if (removed != u"*"_s)
        QVERIFY(!ScratchFiles::read(path).contains(u"rewritten %1"_s.arg(removed).toUtf8()));
}

void TestHistoryStore::switchedOffKeepsNothing()
{
    HistoryStore store(m_files.newPath(u"history.sqlite"_s));
    store.add(entry(u"kept while on"_s));
    QCOMPARE(searchFor(store).size(), 1);
    store.setEnabled(false);
    store.add(entry(u"while off"_s));
    QCOMPARE(searchFor(store), QList<HistoryEntry> {});
    store.setEnabled(true);
    store.add(entry(u"on again"_s));
    QCOMPARE(originals(searchFor(store)), QStringList { u"on again"_s });
}

void TestHistoryStore::damagedFile_data()
{
    QTest::addColumn<QByteArray>("damage"); // written over the file from byte `offset`
    QTest::addColumn<int>("offset");

    QTest::newRow("not a database") << QByteArray(8192, 'x') << 0;
    QTest::newRow("header kept, pages overwritten") << QByteArray(64 * 1024, '\xa5') << 100;
}

void TestHistoryStore::damagedFile()
{
    QFETCH(QByteArray, damage);
    QFETCH(int, offset);

    const QString path = m_files.newPath(u"history.sqlite"_s);
    {
        HistoryStore store(path);
        for (int i = 0; i < 200; ++i)
            store.add(entry(u"entry %1"_s.arg(i), QString(200, u'r')));
        QCOMPARE(searchFor(store).size(), 200);
    }
    {
        QFile file(path);
        QVERIFY(file.open(QIODevice::ReadWrite));
        file.seek(offset);
        file.write(damage);
    }

    HistoryStore store(path);
    QSignalSpy added(&store, &HistoryStore::added);
    store.add(entry(u"after the damage"_s));
    QVERIFY(waitForFailure(store, HistoryFailure::Kind::Damaged));
    QVERIFY(store.failure().message.contains(u"damaged"_s));
    QCOMPARE(searchFor(store), QList<HistoryEntry> {});
    QCOMPARE(added.size(), 0);

    // Delete all starts a new file, and the history works again.
    store.clear();
    QVERIFY(waitForFailure(store, HistoryFailure::Kind::None));
    store.add(entry(u"fresh"_s));
    QCOMPARE(originals(searchFor(store)), QStringList { u"fresh"_s });
    QVERIFY(ScratchFiles::privateToOwner(path));
}

void TestHistoryStore::lockedDatabase()
{
    const QString path = m_files.newPath(u"history.sqlite"_s);
    HistoryStore store(path);
    store.add(entry(u"before the lock"_s));
    QCOMPARE(searchFor(store).size(), 1);

    {
        // Another program holds the file's exclusive lock.
        QSqlDatabase other = QSqlDatabase::addDatabase(u"QSQLITE"_s, u"other"_s);
        other.setDatabaseName(path);
        QVERIFY(other.open());
        QSqlQuery lock(other);
        QVERIFY(lock.exec(u"BEGIN EXCLUSIVE"_s));

        QSignalSpy added(&store, &HistoryStore::added);
        store.add(entry(u"while locked"_s));
        QVERIFY(waitForFailure(store, HistoryFailure::Kind::Locked));
        QVERIFY(!store.failure().message.isEmpty());
        QCOMPARE(added.size(), 0);

        QVERIFY(lock.exec(u"COMMIT"_s));
        lock = QSqlQuery();
        other.close();
    }
    QSqlDatabase::removeDatabase(u"other"_s);

    store.add(entry(u"after the lock"_s));
    QVERIFY(waitForFailure(store, HistoryFailure::Kind::None));
    QCOMPARE(originals(searchFor(store)), (QStringList { u"after the lock"_s, u"before the lock"_s }));
}

void TestHistoryStore::fileMode_data()
{
    QTest::addColumn<bool>("existing"); // a file readable by others was there before

    QTest::newRow("new file") << false;
    QTest::newRow("existing file opened up") << true;
}

void TestHistoryStore::fileMode()
{
    QFETCH(bool, existing);

    const QString path = m_files.newPath(u"history.sqlite"_s);
    if (existing) {
        {
            HistoryStore store(path);
            store.add(entry(u"first run"_s));
            QCOMPARE(searchFor(store).size(), 1);
        }
        QVERIFY(QFile::setPermissions(path, QFile::permissions(path) | QFile::ReadOther | QFile::ReadGroup));
    }
    HistoryStore store(path);
    store.add(entry(u"private"_s));
    QVERIFY(!searchFor(store).isEmpty());
    struct stat info
    {
    };
    QCOMPARE(::stat(QFile::encodeName(path).constData(), &info), 0);
    QCOMPARE(info.st_mode & 0777, 0600u);
}

QTEST_GUILESS_MAIN(TestHistoryStore)
#include "TestHistoryStore.moc"
