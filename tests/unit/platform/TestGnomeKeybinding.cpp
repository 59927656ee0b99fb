// Faults: the user's own shortcuts dropped or overwritten, ours added twice, a binding of
// tessary --trigger at another path or prefix not recognised, a malformed path in the list;
// the plugin not where the program looks for it; without it, no word on binding by hand.
#include "gnome/GnomeKeybinding.h"
#include "gnome/GnomeKeybindingLoader.h"

#include <QCoreApplication>
#include <QDir>
#include <QRegularExpression>
#include <QTest>

#include <gio/gio.h>

using namespace Qt::StringLiterals;

namespace {
// Each entry's path: a short name stands for one in GNOME's own folder; one with a blank, for itself.
QByteArrayList paths(const QStringList &entries)
{
    QByteArrayList list;
    const QString folder = u"/org/gnome/settings-daemon/plugins/media-keys/custom-keybindings/"_s;
    for (const QString &entry : entries) {
        const QString name = entry.section(u'=', 0, 0);
        list << (name.contains(u' ') ? name : folder + name + u'/').toUtf8();
    }
    return list;
}

// Writes one key of an entry (unless value is null) and reads it back.
QString entryKey(const QString &name, const char *key, const char *value = nullptr)
{
    g_autoptr(GSettings) entry = g_settings_new_with_path(GnomeKeybinding::entrySchema, paths({ name })[0]);
    if (value)
        g_settings_set_string(entry, key, value);
    g_autofree gchar *stored = g_settings_get_string(entry, key);
    return QString::fromUtf8(stored);
}
} // namespace

class TestGnomeKeybinding : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { qputenv("GSETTINGS_BACKEND", "keyfile"); }

    void add_data()
    {
        QTest::addColumn<QStringList>("existing"); // name=command, or a path alone
        QTest::addColumn<QStringList>("expected");
        const QString ours = u"tessary"_s;
        QTest::newRow("no shortcuts yet") << QStringList() << QStringList { ours };
        QTest::newRow("the user's own kept, ours appended") << QStringList { u"custom0=gnome-terminal"_s,
            u"custom1=tessary --version"_s } << QStringList { u"custom0"_s, u"custom1"_s, ours };
        QTest::newRow("ours already there")
            << QStringList { u"tessary=tessary --trigger"_s } << QStringList { ours };
        QTest::newRow("another path and prefix")
            << QStringList { u"custom0='/opt/my apps/tessary' --trigger"_s } << QStringList { u"custom0"_s };
        QTest::newRow("a malformed path")
            << QStringList { u"no path"_s } << QStringList { u"no path"_s, ours };
    }

    void add()
    {
        QFETCH(QStringList, existing);
        QFETCH(QStringList, expected);
        const QByteArrayList before = paths(existing);
        std::vector<const char *> strv;
        for (const QByteArray &path : before)
            strv.push_back(path.constData());
        strv.push_back(nullptr);
        for (const QString &entry : existing) {
            if (entry.contains(u'='))
                entryKey(entry.section(u'=', 0, 0), "command", entry.section(u'=', 1).toUtf8().constData());
        }
        g_autoptr(GSettings) list = g_settings_new(GnomeKeybinding::listSchema);
        g_settings_set_strv(list, GnomeKeybinding::listKey, strv.data());

        // Loaded as the program loads it: this test's folder is a sibling of bin/.
        const QString program = QCoreApplication::applicationFilePath();
        const std::unique_ptr<DesktopShortcut> keybinding = loadGnomeKeybinding(program);
        QVERIFY(keybinding->canAdd());
        const bool bound = paths(expected) == before; // then nothing may change
        QCOMPARE(keybinding->isBound(), bound);
        std::optional<QString> error;
        keybinding->add([&error](const QString &message) { error = message; });
        QTRY_COMPARE(error, std::optional(QString()));

        // Read back through objects of their own, as the settings daemon would.
        QVERIFY(loadGnomeKeybinding(program)->isBound());
        g_auto(GStrv) stored = g_settings_get_strv(list, GnomeKeybinding::listKey);
        QCOMPARE(QByteArrayList(stored, stored + g_strv_length(stored)), paths(expected));
        for (const QString &entry : existing) {
            if (entry.contains(u'='))
                QCOMPARE(entryKey(entry.section(u'=', 0, 0), "command"), entry.section(u'=', 1));
        }
        if (!bound) {
            QCOMPARE(entryKey(u"tessary"_s, "command"), program + u" --trigger"_s);
            QCOMPARE(entryKey(u"tessary"_s, "binding"), u"<Control><Alt>h"_s);
        }
        g_settings_reset(list, GnomeKeybinding::listKey);
    }

    void withoutPlugin()
    {
        const QString program = QDir::temp().filePath(u"no-such-folder/bin/tessary"_s);
        QTest::ignoreMessage(QtWarningMsg, QRegularExpression(u"^cannot load /.*/no-such-folder/.*: .+"_s));
        const std::unique_ptr<DesktopShortcut> keybinding = loadGnomeKeybinding(program);
        QVERIFY(!keybinding->canAdd());
        QCOMPARE(keybinding->advice(),
            u"To use Ctrl+Alt+H, add a custom shortcut in GNOME's Settings → Keyboard that runs `"_s + program
                + u" --trigger`."_s);
    }
};

QTEST_GUILESS_MAIN(TestGnomeKeybinding)
#include "TestGnomeKeybinding.moc"
