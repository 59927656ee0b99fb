// Faults: a command-line option taken for another, or an unknown one accepted.
#include "CommandLine.h"

#include <QTest>

using namespace Qt::StringLiterals;

class TestCommandLine : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void actions_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("action");
        QTest::addColumn<QString>("outputContains");

        using A = CommandLine::Action;
        QTest::newRow("none") << QStringList {} << int(A::Run) << QString();
        QTest::newRow("version") << QStringList { u"--version"_s } << int(A::ShowVersion)
                                 << u"Tessary 0.1.0"_s;
        QTest::newRow("help lists trigger")
            << QStringList { u"--help"_s } << int(A::ShowHelp) << u"--trigger"_s;
        QTest::newRow("trigger") << QStringList { u"--trigger"_s } << int(A::Trigger) << QString();
        QTest::newRow("unknown option")
            << QStringList { u"--frobnicate"_s } << int(A::Fail) << u"frobnicate"_s;
        QTest::newRow("stray argument") << QStringList { u"file.txt"_s } << int(A::Fail) << u"file.txt"_s;
    }

    void actions()
    {
        QFETCH(QStringList, arguments);
        QFETCH(int, action);
        QFETCH(QString, outputContains);
        arguments.prepend(u"tessary"_s);

        const CommandLine commandLine = CommandLine::parse(arguments);
        QCOMPARE(int(commandLine.action), action);
        QVERIFY2(commandLine.output.contains(outputContains), qPrintable(commandLine.output));
    }
};

QTEST_GUILESS_MAIN(TestCommandLine)
#include "TestCommandLine.moc"
