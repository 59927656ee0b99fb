// Faults: a token kept in the clear, a spoiled line taken or a good one lost, a name that
// breaks a metric label let in, a revoked token still matching.

#include "ScratchFiles.h"
#include "TokenStore.h"

#include <QFile>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;

class TestTokenStore : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_dir;
    ScratchFiles m_files;

private Q_SLOTS:
    // What the file may hold, as an administrator might edit it by hand.
    void reading_data()
    {
        const QByteArray hash = TokenStore::hashOf("s3cret");
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<QString>("error"); // contained in error(); empty: read
        QTest::addColumn<QString>("nameOfSecret"); // whom "s3cret" lets in
        QTest::newRow("one entry") << "alice 2026-01-02T03:04:05Z sha256:" + hash + "\n"
                                   << QString() << u"alice"_s;
        QTest::newRow("comments, blank lines and spaces")
            << "# team\n\n  alice   2026-01-02T03:04:05Z   sha256:" + hash + "  \n"
            << QString() << u"alice"_s;
        QTest::newRow("hash in capitals") << "alice 2026-01-02T03:04:05Z sha256:" + hash.toUpper() + "\n"
                                          << QString() << u"alice"_s;
        QTest::newRow("token in the clear")
            << QByteArray("alice 2026-01-02T03:04:05Z s3cret\n") << u":1:"_s << QString();
        QTest::newRow("hash cut short") << "alice 2026-01-02T03:04:05Z sha256:" + hash.left(40) + "\n"
                                        << u":1:"_s << QString();
        QTest::newRow("no creation time") << "alice sha256:" + hash + "\n" << u":1:"_s << QString();
        QTest::newRow("a name with a quote") << "al\"ice 2026-01-02T03:04:05Z sha256:" + hash + "\n"
                                             << u":1:"_s << QString();
        QTest::newRow("bad second line") << "alice 2026-01-02T03:04:05Z sha256:" + hash + "\nbob\n"
                                         << u":2:"_s << u"alice"_s;
    }
    void reading()
    {
        QFETCH(QByteArray, text);
        QFETCH(QString, error);
        TokenStore store(m_files.write(text, u"tokens"_s));
        QCOMPARE(store.load(), error.isEmpty());
        QVERIFY2(store.error().contains(error), qPrintable(store.error()));
        QTEST(store.nameOf("s3cret"), "nameOfSecret");
        QCOMPARE(store.nameOf("s3cret-not"), QString());
        QCOMPARE(store.nameOf(""), QString());
    }

    // Names become metric labels and log words: only plain ones are taken.
    void names_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<bool>("valid");
        QTest::newRow("plain") << u"alice"_s << true;
        QTest::newRow("mail address") << u"alice@example.org"_s << true;
        QTest::newRow("dots and dashes") << u"a.b-c_d"_s << true;
        QTest::newRow("empty") << QString() << false;
        QTest::newRow("starting with a dash") << u"-alice"_s << false;
        QTest::newRow("space") << u"alice smith"_s << false;
        QTest::newRow("quote") << u"al\"ice"_s << false;
        QTest::newRow("line end") << u"alice\nbob"_s << false;
        QTest::newRow("65 characters") << QString(65, u'a') << false;
        QTest::newRow("64 characters") << QString(64, u'a') << true;
    }
    void names()
    {
        QFETCH(QString, name);
        TokenStore store(m_dir.filePath(u"names-"_s + QString::fromLatin1(QTest::currentDataTag())));
        QTEST(!store.add(name).isEmpty(), "valid");
    }

    // Added tokens survive a reload under their names; revoked ones do not; the file never
    // holds a token itself.
    void addAndRevokeAcrossReloads()
    {
        const QString path = m_dir.filePath(u"kept"_s);
        TokenStore store(path);
        const QString alice = store.add(u"alice"_s);
        const QString bob = store.add(u"bob"_s);
        QVERIFY(!alice.isEmpty() && !bob.isEmpty() && alice != bob);
        QVERIFY(store.add(u"alice"_s).isEmpty());
        QVERIFY(store.revoke(u"alice"_s));
        QVERIFY(!store.revoke(u"alice"_s));

        TokenStore reread(path);
        QVERIFY(reread.load());
        QCOMPARE(reread.nameOf(bob.toLatin1()), u"bob"_s);
        QCOMPARE(reread.nameOf(alice.toLatin1()), QString());
        QCOMPARE(reread.entries().size(), 1);
        const QByteArray text = ScratchFiles::read(path);
        QVERIFY(!text.contains(bob.toLatin1()) && !text.contains(alice.toLatin1()));
        QVERIFY(ScratchFiles::privateToOwner(path));
    }
};

QTEST_GUILESS_MAIN(TestTokenStore)
#include "TestTokenStore.moc"
