// Faults: a tray menu not following the update state, a second icon, no word when the shortcut is taken.
#include "BrowserCatcher.h"
#include "Replies.h"
#include "StorageManager.h"
#include "TrayMenu.h"
#include "UpdateService.h"

#include <QAction>
#include <QDesktopServices>
#include <QMenu>
#include <QSignalSpy>
#include <QSystemTrayIcon>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

// One line per menu entry: its text, "[bold]", "[off]" when it cannot be chosen, and its
// shortcut; "--" for a separator.
QStringList describe(const QMenu *menu)
{
    QStringList lines;
    for (const QAction *action : menu->actions()) {
        if (action->isSeparator()) {
            lines << u"--"_s;
            continue;
        }
        QString line = action->text();
        if (action->font().bold())
            line += u" [bold]"_s;
        if (!action->isEnabled())
            line += u" [off]"_s;
        if (!action->shortcut().isEmpty())
            line += u" "_s + action->shortcut().toString();
        lines << line;
    }
    return lines;
}

} // namespace

class TestTrayMenu : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void menuAndTooltipFollowTheState();
};

void TestTrayMenu::menuAndTooltipFollowTheState()
{
    FixtureServer server;
    QVERIFY(server.listen());
    QTemporaryDir dir;
    StorageManager storage(dir.filePath(u"Tessary.conf"_s), server.url("/api/v1").toString());
    UpdateService updates(storage, {});
    BrowserCatcher browser;

    TrayMenu tray(updates);
    const QStringList plain { u"Rewrite as me Ctrl+Alt+H"_s, u"Undo last rewrite [off]"_s, u"--"_s,
        u"Check for Updates…"_s, u"History…"_s, u"Settings… Ctrl+,"_s, u"--"_s, u"Quit Tessary Ctrl+Q"_s };
    QCOMPARE(describe(tray.menu()), plain);

    // A newer release: the menu is rebuilt with the bold update item, which downloads.
    server.route("/api/v1/version", jsonReply(200, releaseRecord(u"99.0"_s)));
    QSignalSpy status(&updates, &UpdateService::updateStatusChanged);
    updates.checkForUpdates(true);
    QVERIFY(status.wait());
    QStringList available = plain;
    available[3] = u"Update Available! [bold]"_s;
    QCOMPARE(describe(tray.menu()), available);
    tray.menu()->actions().at(3)->trigger();
    QCOMPARE(browser.opened, QList<QUrl> { QUrl(u"https://example.org/t-99.0"_s) });
    QCOMPARE(server.requests().size(), 1); // the item opened the download instead of asking again

    // A later check without news brings the plain item back; still one icon.
    server.route("/api/v1/version", jsonReply(200, releaseRecord(u"0.0.1"_s)));
    updates.checkForUpdates(true);
    QVERIFY(status.wait());
    QCOMPARE(describe(tray.menu()), plain);
    QCOMPARE(tray.findChildren<QSystemTrayIcon *>().size(), 1);
    QVERIFY(!tray.icon()->icon().pixmap(22).isNull());

    // Without a known update the item asks the service, and the user hears the answer.
    QSignalSpy upToDate(&updates, &UpdateService::upToDate);
    tray.menu()->actions().at(3)->trigger();
    QVERIFY(upToDate.wait());
    QCOMPARE(server.requests().size(), 3);

    // The tooltip says when another program holds the shortcut.
    QVERIFY(!tray.icon()->toolTip().contains(u"unavailable"_s));
    tray.setShortcutAvailable(false);
    QVERIFY(tray.icon()->toolTip().contains(u"Ctrl+Alt+H is unavailable"_s));

    // Undo can be chosen while there is a Replace to take back, also in a rebuilt menu.
    QSignalSpy undo(&tray, &TrayMenu::undoRequested);
    tray.setUndoAvailable(true);
    tray.rebuild();
    QStringList undoable = plain;
    undoable[1] = u"Undo last rewrite"_s;
    QCOMPARE(describe(tray.menu()), undoable);
    tray.menu()->actions().at(1)->trigger();
    QCOMPARE(undo.size(), 1);
    tray.setUndoAvailable(false);
    QCOMPARE(describe(tray.menu()), plain);
}

QTEST_MAIN(TestTrayMenu)
#include "TestTrayMenu.moc"
