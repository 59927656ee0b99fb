// Faults: a terminal taken for an editor (it would get a typed Ctrl+C), an editor taken for a
// terminal, or a paste key named that the terminal passes to its job.
#include "TerminalPaste.h"

#include <QTest>

using namespace Qt::StringLiterals;

class TestTerminalPaste : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // Window classes as the programs set them (instance, class); the paste the sentence names.
    void paste_data()
    {
        QTest::addColumn<QStringList>("windowClass");
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("paste"); // empty: no terminal

        const QString primary = u"Shift+Insert or the middle button"_s;
        const QString clipboard = u"Ctrl+Shift+V"_s;
        const auto row = [](const char *title, const QStringList &windowClass, const QString &name,
                             const QString &paste) { QTest::newRow(title) << windowClass << name << paste; };

        // Stock xterm and urxvt bind no Ctrl+Shift+V: it would reach the job.
        row("xterm", { u"xterm"_s, u"XTerm"_s }, u"XTerm"_s, primary);
        row("uxterm", { u"uxterm"_s, u"UXTerm"_s }, u"UXTerm"_s, primary);
        row("urxvt", { u"urxvt"_s, u"URxvt"_s }, u"urxvt"_s, primary);
        row("GNOME Terminal", { u"gnome-terminal-server"_s, u"Gnome-terminal"_s }, u"Terminal"_s, clipboard);
        row("Konsole", { u"konsole"_s, u"konsole"_s }, u"Konsole"_s, clipboard);
        row("kitty", { u"kitty"_s, u"kitty"_s }, u"kitty"_s, clipboard);
        row("Alacritty", { u"Alacritty"_s, u"Alacritty"_s }, u"Alacritty"_s, clipboard);
        row("foot", { u"foot"_s, u"foot"_s }, u"Foot"_s, clipboard);
        row("Tilix", { u"tilix"_s, u"com.gexperts.Tilix"_s }, u"Tilix"_s, clipboard);
        row("Xfce Terminal", { u"xfce4-terminal"_s, u"Xfce4-terminal"_s }, u"Xfce Terminal"_s, clipboard);
        row("st", { u"st-256color"_s, u"st-256color"_s }, u"st"_s, clipboard);
        // Known by its name alone: some windows under XWayland carry no class.
        row("no class, known by name", {}, u"Konsole"_s, clipboard);
        row("no class, an X terminal by name", {}, u"xterm"_s, primary);
        // Not terminals: they get the typed copy and paste.
        row("an editor named after a terminal word", { u"termpad"_s, u"Termpad"_s }, u"Termpad"_s, QString());
        row("mousepad", { u"mousepad"_s, u"Mousepad"_s }, u"Mousepad"_s, QString());
        row("nothing known", {}, QString(), QString());
    }
    void paste()
    {
        QFETCH(QStringList, windowClass);
        QFETCH(QString, name);
        QFETCH(QString, paste);

        const RunningApplication app { 1, name, 2, windowClass };
        const std::optional<TerminalPaste> found = terminalPaste(app);
        QCOMPARE(found.has_value(), !paste.isEmpty());
        QCOMPARE(isTerminal(app), !paste.isEmpty());
        if (found)
            QCOMPARE(found->howToPaste(), paste);
    }
};

QTEST_GUILESS_MAIN(TestTerminalPaste)
#include "TestTerminalPaste.moc"
