// Faults: an update window that cannot be worked from the keyboard, that blocks the rest of the
// program, that downloads on the wrong key, stacks a second window, or names no control.
#include "BrowserCatcher.h"
#include "QuickItems.h"
#include "Replies.h"
#include "StorageManager.h"
#include "UpdateAlert.h"
#include "UpdateService.h"

#include <QAccessible>
#include <QQuickItem>
#include <QQuickWindow>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;

// The window an interactive check opens when it finds a newer release, worked as a
// keyboard user works it.
class TestUpdateAlert : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void keyboard_data()
    {
        QTest::addColumn<QStringList>("keys"); // as QKeySequence spells them, in order
        QTest::addColumn<bool>("downloaded");

        QTest::newRow("Return: the focused Download") << QStringList { u"Return"_s } << true;
        QTest::newRow("Space on Download") << QStringList { u"Space"_s } << true;
        QTest::newRow("Escape: Later") << QStringList { u"Escape"_s } << false;
        // Tab leaves Download for the first button, Skip This Version.
        QTest::newRow("Tab to Skip This Version, Return") << QStringList { u"Tab"_s, u"Return"_s } << false;
        QTest::newRow("Tab twice to Later, Space") << QStringList { u"Tab"_s, u"Tab"_s, u"Space"_s } << false;
    }
    void keyboard()
    {
        QFETCH(QStringList, keys);
        QFETCH(bool, downloaded);

        FixtureServer server;
        QVERIFY(server.listen());
        server.route("/api/v1/version", jsonReply(200, releaseRecord(u"2.0.0"_s)));
        QTemporaryDir dir;
        StorageManager storage(dir.filePath(u"Tessary.conf"_s), server.url("/api/v1").toString());
        UpdateService updates(storage, { { u"version"_s, u"1.9"_s } });
        UpdateAlert alert(updates);
        BrowserCatcher browser;

        QSignalSpy status(&updates, &UpdateService::updateStatusChanged);
        updates.checkForUpdates(false);
        QVERIFY(status.wait());
        QQuickWindow *window = alert.window();
        QVERIFY(window);
        QVERIFY(QTest::qWaitForWindowExposed(window));
        QCOMPARE(window->modality(), Qt::NonModal);
        QCOMPARE(item(window, u"heading"_s)->property("text").toString(), u"Update Available"_s);
        QVERIFY(item(window, u"message"_s)
                    ->property("text")
                    .toString()
                    .startsWith(u"Version 2.0.0 is now available."_s));
        // Every control carries the name a screen reader reads out.
        for (const QString &name : { u"download"_s, u"later"_s, u"skip"_s }) {
            QAccessibleInterface *control = QAccessible::queryAccessibleInterface(item(window, name));
            QVERIFY(control && !control->text(QAccessible::Name).isEmpty());
        }

        QTRY_VERIFY(item(window, u"download"_s)->hasActiveFocus());
        for (const QString &key : keys) {
            const QKeyCombination combination = QKeySequence(key)[0];
            QTest::keyClick(window, combination.key(), combination.keyboardModifiers());
        }
        QTRY_VERIFY(!window->isVisible());
        QCOMPARE(browser.opened,
            downloaded ? QList<QUrl> { QUrl(u"https://example.org/t-2.0.0"_s) } : QList<QUrl>());

        // The next announcement comes in the same window, not a second one.
        updates.checkForUpdates(false);
        QVERIFY(status.wait());
        QTRY_VERIFY(window->isVisible());
        QCOMPARE(alert.window(), window);
    }

private:
    static QQuickItem *item(QQuickWindow *window, const QString &name)
    {
        return QuickItems::all(window->contentItem(), name).value(0);
    }
};

QTEST_MAIN(TestUpdateAlert)
#include "TestUpdateAlert.moc"
