// Faults: a command-line option taken for another, an unknown one accepted, an option missing from the
// help or the help naming no command.
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
        // Every option is listed, under the command the user types, before any application object
        // names the program.
        QTest::newRow("help lists trigger")
            << QStringList { u"--help"_s } << int(A::ShowHelp) << u"--trigger"_s;
        QTest::newRow("help lists settings")
            << QStringList { u"--help"_s } << int(A::ShowHelp) << u"--settings"_s;
        QTest::newRow("help lists version") << QStringList { u"-h"_s } << int(A::ShowHelp) << u"--version"_s;
        QTest::newRow("help names tessary")
            << QStringList { u"--help"_s } << int(A::ShowHelp) << u"Usage: tessary [options]\n"_s;
        QTest::newRow("trigger") << QStringList { u"--trigger"_s } << int(A::Trigger) << QString();
        QTest::newRow("settings") << QStringList { u"--settings"_s } << int(A::ShowSettings) << QString();
        QTest::newRow("trigger and settings at once")
            << QStringList { u"--trigger"_s, u"--settings"_s } << int(A::Fail) << u"give one"_s;
        QTest::newRow("unknown option")
            << QStringList { u"--frobnicate"_s } << int(A::Fail) << u"frobnicate"_s;
        QTest::newRow("stray argument") << QStringList { u"file.txt"_s } << int(A::Fail) << u"file.txt"_s;
    }

    // What a saved instruction's desktop shortcut runs: the words reach the running program.
    void instruction_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("action");
        QTest::addColumn<QString>("instruction"); // Trigger's; else what the failure names

        using A = CommandLine::Action;
        QTest::newRow("with trigger") << QStringList { u"--trigger"_s, u"--instruction"_s, u"shorter"_s }
                                      << int(A::Trigger) << u"shorter"_s;
        QTest::newRow("words with spaces, =")
            << QStringList { u"--instruction= in German "_s, u"--trigger"_s } << int(A::Trigger)
            << u"in German"_s;
        QTest::newRow("trigger alone has none")
            << QStringList { u"--trigger"_s } << int(A::Trigger) << QString();
        QTest::newRow("without trigger")
            << QStringList { u"--instruction"_s, u"shorter"_s } << int(A::Fail) << u"--trigger"_s;
        QTest::newRow("without words")
            << QStringList { u"--trigger"_s, u"--instruction"_s } << int(A::Fail) << u"instruction"_s;
        QTest::newRow("blank words") << QStringList { u"--trigger"_s, u"--instruction= "_s } << int(A::Fail)
                                     << u"words"_s;
    }
    void instruction()
    {
        QFETCH(QStringList, arguments);
        QFETCH(int, action);
        QFETCH(QString, instruction);
        arguments.prepend(u"tessary"_s);

        const CommandLine commandLine = CommandLine::parse(arguments);
        QCOMPARE(int(commandLine.action), action);
        if (action == int(CommandLine::Action::Trigger))
            QCOMPARE(commandLine.instruction, instruction);
        else
            QVERIFY2(commandLine.output.contains(instruction), qPrintable(commandLine.output));
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
        QVERIFY2(!commandLine.output.contains(u"<executable_name>"_s), qPrintable(commandLine.output));
    }
};

QTEST_GUILESS_MAIN(TestCommandLine)
#include "TestCommandLine.moc"
