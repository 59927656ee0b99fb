// Faults: a window named from the wrong desktop entry, an action or another language, not in the user's
// language where the entry has it, or not named at all.
#include "x11/ApplicationName.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;

class TestApplicationName : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void lookup_data();
    void lookup();
    void fallsBackToTheProcessName();
};

void TestApplicationName::lookup_data()
{
    QTest::addColumn<QString>("instance");
    QTest::addColumn<QString>("className");
    QTest::addColumn<QString>("locale");
    QTest::addColumn<QString>("expected");

    const QString c = u"C"_s;
    QTest::newRow("reverse-DNS file name") << u"mousepad"_s << u"Mousepad"_s << c << u"Mousepad"_s;
    QTest::newRow("StartupWMClass beats the file name") << u"xterm"_s << u"XTerm"_s << c << u"XTerm"_s;
    QTest::newRow("StartupWMClass, case differs")
        << u"gimp-2.10"_s << u"Gimp-2.10"_s << c << u"GNU Image Program"_s;
    QTest::newRow("plain file name") << u"editor"_s << u"Editor"_s << c << u"Plain Editor"_s;
    QTest::newRow("no entry: the class") << u"unknown-tool"_s << u"Unknown-tool"_s << c << u"Unknown-tool"_s;
    // The user's language: with the country first, then the language alone, then no translation.
    QTest::newRow("German") << u"mousepad"_s << u"Mousepad"_s << u"de_DE"_s << u"Mauspad"_s;
    QTest::newRow("Swiss German, its own name")
        << u"mousepad"_s << u"Mousepad"_s << u"de_CH"_s << u"Muuspad"_s;
    QTest::newRow("Swiss German, the entry has only German")
        << u"editor"_s << u"Editor"_s << u"de_CH"_s << u"Einfacher Editor"_s;
    QTest::newRow("French, no translation") << u"mousepad"_s << u"Mousepad"_s << u"fr_FR"_s << u"Mousepad"_s;
    QTest::newRow("an action's translation is no name")
        << u"gimp-2.10"_s << u"Gimp-2.10"_s << u"de_DE"_s << u"GNU Image Program"_s;
}

void TestApplicationName::lookup()
{
    QFETCH(QString, instance);
    QFETCH(QString, className);
    QFETCH(QString, locale);
    QFETCH(QString, expected);

    QTemporaryDir user;
    QTemporaryDir system;
    const auto write = [](const QTemporaryDir &dir, const QString &file, const QByteArray &text) {
        QFile entry(dir.filePath(file));
        QVERIFY(entry.open(QIODevice::WriteOnly));
        entry.write(text);
    };
    // Names of actions and translations must not be taken for the application's name.
    write(system, u"org.xfce.mousepad.desktop"_s,
        "[Desktop Entry]\nName[de]=Mauspad\nName=Mousepad\nName[de_CH]=Muuspad\nExec=mousepad\n\n"
        "[Desktop Action preferences]\nName=Mousepad Preferences\n");
    write(system, u"org.xfce.mousepad-settings.desktop"_s, "[Desktop Entry]\nName=Text Editor Settings\n");
    write(system, u"xterm.desktop"_s, "[Desktop Entry]\nName=Wrong Terminal\n");
    write(system, u"zz-terminal.desktop"_s, "[Desktop Entry]\nName=XTerm\nStartupWMClass=XTerm\n");
    write(system, u"gimp.desktop"_s,
        "[Desktop Entry]\nName=GNU Image Program\nStartupWMClass=gimp-2.10\n\n"
        "[Desktop Action new]\nName[de]=Neues Bild\n");
    write(system, u"editor.desktop"_s, "[Desktop Entry]\nName[de]=Einfacher Editor\nName=Plain Editor\n");
    write(user, u"broken.desktop"_s, "no group at all\nName=Broken\n");
    // An editor's backup beside the entries is no entry.
    write(user, u"unknown.desktop~"_s, "[Desktop Entry]\nName=Stale Backup\nStartupWMClass=unknown-tool\n");

    QCOMPARE(applicationName(WindowClass { instance, className }, 0, { user.path(), system.path() }, locale),
        expected);
}

void TestApplicationName::fallsBackToTheProcessName()
{
    QFile comm(u"/proc/self/comm"_s);
    QVERIFY(comm.open(QIODevice::ReadOnly));
    const QString own = QString::fromLocal8Bit(comm.readAll()).trimmed();
    QCOMPARE(applicationName(std::nullopt, QCoreApplication::applicationPid(), QStringList()), own);
    QCOMPARE(applicationName(std::nullopt, 0, QStringList()), QString());
}

QTEST_GUILESS_MAIN(TestApplicationName)
#include "TestApplicationName.moc"
