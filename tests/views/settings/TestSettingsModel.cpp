// Faults: sample edits lost or misplaced, the update box or download wrong, autostart not written or removed.
#include "SettingsModel.h"
#include "StorageManager.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;

using Release = SettingsModel::Release;
Q_DECLARE_METATYPE(std::optional<Release>)

class TestSettingsModel : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_dir;
    int m_stores = 0;
    QString newPath() { return m_dir.filePath(u"store-%1/Tessary.conf"_s.arg(++m_stores)); }

    struct Fixture
    {
        explicit Fixture(const QString &path, const QString &autostartDir)
            : storage(path, u"http://127.0.0.1:8787/api/v1"_s)
            , model(storage, autostartDir,
                  [this](const QUrl &url) {
                      opened.append(url);
                      return true;
                  },
                  {})
        {
        }
        StorageManager storage;
        QList<QUrl> opened;
        SettingsModel model;
    };

private Q_SLOTS:
    // Sample editing as the view does it, checked against what a fresh store reads back.
    void samples_data()
    {
        QTest::addColumn<QStringList>("stored");
        QTest::addColumn<QString>("action");
        QTest::addColumn<int>("index");
        QTest::addColumn<QString>("text");
        QTest::addColumn<QStringList>("expected");
        QTest::addColumn<bool>("canAdd");

        const QStringList three { u"one"_s, u"two"_s, u"three"_s };
        const QStringList four { u"a"_s, u"b"_s, u"c"_s, u"d"_s };
        const QStringList six { u"1"_s, u"2"_s, u"3"_s, u"4"_s, u"5"_s, u"6"_s };
        QTest::newRow("typing keeps blanks")
            << three << u"edit"_s << 1 << u"  two, more \t"_s
            << QStringList { u"one"_s, u"  two, more \t"_s, u"three"_s } << true;
        QTest::newRow("remove middle")
            << three << u"remove"_s << 1 << QString() << QStringList { u"one"_s, u"three"_s } << true;
        QTest::newRow("remove the last one left")
            << QStringList { u"only"_s } << u"remove"_s << 0 << QString() << QStringList() << true;
        QTest::newRow("add to four makes five, no more adding")
            << four << u"add"_s << 0 << QString() << (four + QStringList { QString() }) << false;
        QTest::newRow("add to empty")
            << QStringList() << u"add"_s << 0 << QString() << QStringList { QString() } << true;
        QTest::newRow("more than five: all editable, none added")
            << six << u"edit"_s << 5 << u"six"_s
            << QStringList { u"1"_s, u"2"_s, u"3"_s, u"4"_s, u"5"_s, u"six"_s } << false;
        QTest::newRow("stale editor past the end writes nothing")
            << three << u"edit"_s << 3 << u"late"_s << three << true;
        QTest::newRow("stale remove past the end does nothing")
            << three << u"remove"_s << 7 << QString() << three << true;
    }
    void samples()
    {
        QFETCH(QStringList, stored);
        QFETCH(QString, action);
        QFETCH(int, index);
        QFETCH(QString, text);
        QFETCH(QStringList, expected);

        const QString path = newPath();
        {
            Fixture f(path, m_dir.filePath(u"autostart"_s));
            f.storage.setExamples(stored);
            QSignalSpy changed(&f.storage, &StorageManager::examplesChanged);
            if (action == u"edit"_s)
                f.model.setExample(index, text);
            else if (action == u"remove"_s)
                f.model.removeExample(index);
            else
                f.model.addExample();
            QCOMPARE(f.storage.examples(), expected);
            QCOMPARE(changed.size(), expected == stored ? 0 : 1); // one change, one write
            QTEST(f.model.canAddSample(), "canAdd");
        }
        StorageManager reread(path, u"http://127.0.0.1:8787/api/v1"_s);
        QCOMPARE(reread.examples(), expected);
    }

    // The update box shows only with both a newer release flagged and its record; its
    // button opens the record's address when it is one.
    void updateBox_data()
    {
        QTest::addColumn<bool>("available");
        QTest::addColumn<std::optional<Release>>("release");
        QTest::addColumn<bool>("shows");
        QTest::addColumn<QString>("title");
        QTest::addColumn<QString>("notes");
        QTest::addColumn<QList<QUrl>>("opened");

        const Release release { u"1.4.0"_s, u"Faster."_s, u"https://example.org/get?x=1"_s };
        QTest::newRow("available with record")
            << true << std::optional(release) << true << u"Update Available: v1.4.0"_s << u"Faster."_s
            << QList<QUrl> { QUrl(u"https://example.org/get?x=1"_s) };
        QTest::newRow("address that is none")
            << true << std::optional(Release { u"2.0"_s, QString(), u"not a url"_s }) << true
            << u"Update Available: v2.0"_s << QString() << QList<QUrl>();
        QTest::newRow("available without record")
            << true << std::optional<Release>() << false << QString() << QString() << QList<QUrl>();
        QTest::newRow("record but not newer")
            << false << std::optional(release) << false << QString() << QString() << QList<QUrl>();
    }
    void updateBox()
    {
        QFETCH(bool, available);
        QFETCH(std::optional<Release>, release);
        Fixture f(newPath(), m_dir.filePath(u"autostart"_s));
        QSignalSpy changed(&f.model, &SettingsModel::updateStateChanged);
        f.model.setUpdateState(false, available, release);
        QCOMPARE(changed.size(), 1);
        QTEST(f.model.showsUpdate(), "shows");
        QTEST(f.model.updateTitle(), "title");
        QTEST(f.model.releaseNotes(), "notes");
        if (available) // the button is there
            f.model.download();
        QTEST(f.opened, "opened");
    }

    void startAtLogin_data()
    {
        QTest::addColumn<bool>("writable");
        QTest::newRow("writable") << true;
        // A file where the folder should be: nothing can be written, the toggle snaps back.
        QTest::newRow("a file where the folder should be") << false;
    }
    void startAtLogin()
    {
        QFETCH(bool, writable);
        const QString autostart = m_dir.filePath(u"config%1/autostart"_s.arg(m_stores));
        if (!writable) {
            QFile blocker(QFileInfo(autostart).path());
            QVERIFY(QDir().mkpath(QFileInfo(blocker).path()) && blocker.open(QIODevice::WriteOnly));
        }
        Fixture f(newPath(), autostart);
        QSignalSpy changed(&f.model, &SettingsModel::startAtLoginChanged);
        QVERIFY(!f.model.startAtLogin());

        f.model.setStartAtLogin(true);
        QCOMPARE(f.model.startAtLogin(), writable);
        QCOMPARE(changed.size(), 1);
        if (!writable)
            return;
        QFile entry(autostart + u"/tessary.desktop"_s);
        QVERIFY(entry.open(QIODevice::ReadOnly));
        const QByteArray contents = entry.readAll();
        QVERIFY(contents.startsWith("[Desktop Entry]\n"));
        QVERIFY(contents.contains("\nType=Application\n"));
        QVERIFY(contents.contains("\nExec=\"" + QCoreApplication::applicationFilePath().toUtf8() + "\"\n"));

        f.model.setStartAtLogin(false);
        QVERIFY(!QFile::exists(entry.fileName()));
        QCOMPARE(changed.size(), 2);
    }
};

QTEST_GUILESS_MAIN(TestSettingsModel)
#include "TestSettingsModel.moc"
