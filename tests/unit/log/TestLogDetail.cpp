// Guards against the user's words reaching the journal: a desktop or login start that
// logs full text, or a terminal start that hides what a developer asked to see.
#include "Log.h"

#include <QTest>

using namespace Qt::StringLiterals;

class TestLogDetail : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void choice_data()
    {
        QTest::addColumn<QStringList>("environment");
        QTest::addColumn<QString>("stdoutDeviceInode");
        QTest::addColumn<bool>("full");

        const QString journal = u"JOURNAL_STREAM=8:4711"_s;
        QTest::newRow("terminal or caller's pipe") << QStringList { u"HOME=/h"_s } << u"0:99"_s << true;
        QTest::newRow("output is the journal") << QStringList { journal } << u"8:4711"_s << false;
        QTest::newRow("journal inherited, output redirected") << QStringList { journal } << u"0:99"_s << true;
        QTest::newRow("launched from a desktop entry")
            << QStringList { u"GIO_LAUNCHED_DESKTOP_FILE=/usr/share/applications/t.desktop"_s } << u"0:99"_s
            << false;
        QTest::newRow("asked for full text in the journal")
            << QStringList { journal, u"TESSARY_LOG=full"_s } << u"8:4711"_s << true;
        QTest::newRow("asked for privacy in a terminal")
            << QStringList { u"TESSARY_LOG=private"_s } << u"0:99"_s << false;
        QTest::newRow("a longer name is not the variable")
            << QStringList { u"TESSARY_LOGX=private"_s, u"XJOURNAL_STREAM=8:4711"_s } << u"8:4711"_s << true;
    }

    void choice()
    {
        QFETCH(QStringList, environment);
        QFETCH(QString, stdoutDeviceInode);
        QTEST(Log::chooseDetail(environment, stdoutDeviceInode) == Log::Detail::Full, "full");
    }
};

QTEST_GUILESS_MAIN(TestLogDetail)
#include "TestLogDetail.moc"
