// Faults: the user's own shortcuts dropped or overwritten, ours added twice, a binding of
// tessary --trigger at another path or prefix not recognised, a malformed entry that aborts.
#include "gnome/GnomeKeybinding.h"

#include <QCoreApplication>
#include <QTest>

#include <gio/gio.h>

using namespace Qt::StringLiterals;

namespace {
// A short name stands for an entry below GNOME's own folder; one with a blank, for itself.
QByteArray path(const QString &name)
{
    return (name.contains(u' ')
            ? name
            : u"/org/gnome/settings-daemon/plugins/media-keys/custom-keybindings/"_s + name + u'/')
        .toUtf8();
}

// Reads (value null) or writes one key of an entry.
QString entryKey(const QString &name, const char *key, const char *value = nullptr)
{
    GSettings *entry = g_settings_new_with_path(GnomeKeybinding::entrySchema, path(name).constData());
    if (value)
        g_settings_set_string(entry, key, value);
    gchar *stored = g_settings_get_string(entry, key);
    const QString text = QString::fromUtf8(stored);
    g_free(stored);
    g_object_unref(entry);
    return text;
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
        QTest::addColumn<bool>("boundBefore");
        QTest::addColumn<QStringList>("expected");

        QTest::newRow("no shortcuts yet") << QStringList() << false << QStringList { u"tessary"_s };
        QTest::newRow("the user's own kept, ours appended")
            << QStringList { u"custom0=gnome-terminal"_s, u"custom1=tessary --version"_s } << false
            << QStringList { u"custom0"_s, u"custom1"_s, u"tessary"_s };
        QTest::newRow("ours already there")
            << QStringList { u"tessary=tessary --trigger"_s } << true << QStringList { u"tessary"_s };
        QTest::newRow("another path and prefix")
            << QStringList { u"custom0='/opt/my apps/tessary' --trigger"_s } << true
            << QStringList { u"custom0"_s };
        QTest::newRow("a malformed path")
            << QStringList { u"no path"_s } << false << QStringList { u"no path"_s, u"tessary"_s };
    }

    void add()
    {
        QFETCH(QStringList, existing);
        QFETCH(bool, boundBefore);
        QFETCH(QStringList, expected);
        GSettings *list = g_settings_new(GnomeKeybinding::listSchema);
        const auto storeList = [list](const QStringList &names) {
            QByteArrayList paths;
            std::vector<const char *> strv;
            for (const QString &name : names)
                strv.push_back(paths.emplace_back(path(name)).constData());
            strv.push_back(nullptr);
            g_settings_set_strv(list, GnomeKeybinding::listKey, strv.data());
        };
        QStringList names;
        for (const QString &entry : existing) {
            names << entry.section(u'=', 0, 0);
            if (entry.contains(u'='))
                entryKey(names.last(), "command", entry.section(u'=', 1).toUtf8().constData());
        }
        storeList(names);

        const QString program = QCoreApplication::applicationFilePath();
        GnomeKeybinding keybinding(program);
        QVERIFY(keybinding.canAdd());
        QCOMPARE(keybinding.isBound(), boundBefore);
        std::optional<QString> error;
        keybinding.add([&error](const QString &message) { error = message; });
        QTRY_VERIFY(error.has_value());
        QCOMPARE(*error, QString());

        // Read back through objects of their own, as the settings daemon would.
        QVERIFY(GnomeKeybinding(program).isBound());
        gchar **stored = g_settings_get_strv(list, GnomeKeybinding::listKey);
        QByteArrayList storedPaths(stored, stored + g_strv_length(stored));
        g_strfreev(stored);
        QByteArrayList expectedPaths;
        for (const QString &name : expected)
            expectedPaths << path(name);
        QCOMPARE(storedPaths, expectedPaths);
        for (const QString &entry : existing) {
            if (entry.contains(u'='))
                QCOMPARE(entryKey(entry.section(u'=', 0, 0), "command"), entry.section(u'=', 1));
        }
        if (!boundBefore) {
            QCOMPARE(entryKey(u"tessary"_s, "command"), program + u" --trigger"_s);
            QCOMPARE(entryKey(u"tessary"_s, "binding"), u"<Control><Alt>h"_s);
        }
        storeList({});
        for (const QString &name : { u"custom0"_s, u"custom1"_s, u"tessary"_s })
            entryKey(name, "command", "");
        g_object_unref(list);
    }
};

QTEST_GUILESS_MAIN(TestGnomeKeybinding)
#include "TestGnomeKeybinding.moc"
