// Faults: a check due too early or never, state lost on a bad reply, an alert on a silent check, a choice of
// the alert remembered.
#include "BrowserCatcher.h"
#include "QuickItems.h"
#include "Replies.h"
#include "StdoutCapture.h"
#include "StorageManager.h"
#include "UpdateAlert.h"
#include "UpdateService.h"

#include <QDesktopServices>
#include <QGuiApplication>
#include <QJsonObject>
#include <QQuickItem>
#include <QQuickWindow>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

// Answers the update alert with the button titled `answer` once it is on screen, and
// keeps what each showed: "title / text / buttons", and whether the check still ran.
class AlertAnswerer : public QObject
{
public:
    AlertAnswerer(UpdateService &service, const QString &answer)
        : m_view(service)
    {
        const auto answerAlert = [this, &service, answer] {
            QQuickWindow *window = m_view.window();
            if (!window || !window->isVisible())
                return;
            const auto text = [window](const char *name) {
                const QQuickItem *item
                    = QuickItems::all(window->contentItem(), QString::fromLatin1(name)).value(0);
                return item ? item->property("text").toString() : QString();
            };
            QStringList buttons;
            QQuickItem *chosen = nullptr;
            for (const char *name : { "download", "later", "skip" }) {
                QQuickItem *button
                    = QuickItems::all(window->contentItem(), QString::fromLatin1(name)).value(0);
                buttons.append(text(name));
                chosen = text(name) == answer ? button : chosen;
            }
            buttons.sort();
            shown.append(QStringList { text("heading"), text("message"), buttons.join(u", ") }.join(u" / ")
                + (service.isCheckingForUpdates() ? u" (while checking)"_s : QString()));
            if (chosen)
                QMetaObject::invokeMethod(chosen, "clicked");
            else
                window->close();
        };
        connect(&service, &UpdateService::updateAlertRequested, this, answerAlert, Qt::QueuedConnection);
    }
    QStringList shown;

private:
    UpdateAlert m_view;
};

} // namespace

class TestUpdateService : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init()
    {
        m_dir = std::make_unique<QTemporaryDir>();
        m_server = std::make_unique<FixtureServer>();
        QVERIFY(m_server->listen());
        m_storage = std::make_unique<StorageManager>(
            m_dir->filePath(u"Tessary.conf"_s), m_server->url("/api/v1").toString());
    }
    void cleanup()
    {
        m_storage.reset();
        m_server.reset();
        m_dir.reset();
    }
    void due_data()
    {
        QTest::addColumn<bool>("enabled");
        QTest::addColumn<qint64>("secondsSinceLastCheck"); // negative: in the future; min: never checked
        QTest::addColumn<bool>("due");

        const qint64 never = std::numeric_limits<qint64>::min();
        QTest::newRow("never checked") << true << never << true;
        QTest::newRow("an hour ago") << true << qint64(3600) << false;
        QTest::newRow("exactly 24 hours ago") << true << qint64(86400) << false;
        QTest::newRow("24 hours and a second ago") << true << qint64(86401) << true;
        QTest::newRow("clock set back: last check ahead") << true << qint64(-3600) << false;
        QTest::newRow("disabled, never checked") << false << never << false;
    }
    void due()
    {
        QFETCH(bool, enabled);
        QFETCH(qint64, secondsSinceLastCheck);
        QFETCH(bool, due);

        m_storage->setUpdateCheckEnabled(enabled);
        const QDateTime now = QDateTime::currentDateTime();
        const bool never = secondsSinceLastCheck == std::numeric_limits<qint64>::min();
        m_storage->setLastVersionCheck(never ? QDateTime() : now.addSecs(-secondsSinceLastCheck));
        UpdateService service(*m_storage, {});
        QCOMPARE(service.shouldCheckForUpdates(now), due);
        if (!enabled) {
            // Switched off, the automatic check stays away; the user asking still checks.
            m_server->route("/api/v1/version", jsonReply(200, releaseRecord(u"9.0"_s)));
            QSignalSpy checking(&service, &UpdateService::isCheckingForUpdatesChanged);
            service.checkForUpdates(true);
            QCOMPARE(checking.size(), 0);
            service.checkForUpdates(false);
            QTRY_COMPARE(checking.size(), 2);
            QVERIFY(service.updateAvailable());
            m_storage->setLastVersionCheck({});
        }

        // Reloaded from disk, as at the next launch.
        StorageManager reloaded(m_dir->filePath(u"Tessary.conf"_s), m_storage->apiBase());
        QCOMPARE(UpdateService(reloaded, {}).shouldCheckForUpdates(now), due);
    }
    void check_data()
    {
        QTest::addColumn<bool>("knownBefore"); // a previous check already found 9.0.0
        QTest::addColumn<bool>("silent");
        QTest::addColumn<int>("status");
        QTest::addColumn<QByteArray>("body"); // empty: nobody listens
        QTest::addColumn<bool>("available");
        QTest::addColumn<int>("notifications");
        QTest::addColumn<QStringList>("log");
        QTest::addColumn<QString>("told"); // what an interactive check tells the user beside the alert

        const QStringList current { u"📱 Bundle version from Info.plist: 0.1.0"_s,
            u"📱 Full bundle info: {\"name\":\"Tessary\",\"version\":\"0.1.0\"}"_s };
        const auto compared = [&](const QString &remote) {
            return current + QStringList { u"🔍 Version check - Current: 0.1.0, Remote: "_s + remote };
        };

        QTest::newRow("silent, newer") << false << true << 200 << releaseRecord(u"0.1.10"_s) << true << 1
                                       << (compared(u"0.1.10"_s) << u"✅ Update available!"_s) << QString();
        QTest::newRow("silent, same under another spelling")
            << true << true << 200 << releaseRecord(u"0.1"_s) << false << 1
            << (compared(u"0.1"_s) << u"✅ App is up to date"_s) << QString();
        QTest::newRow("interactive, older")
            << true << false << 200 << releaseRecord(u"0.0.9"_s) << false << 1
            << (compared(u"0.0.9"_s) << u"✅ App is up to date"_s) << u"up to date 0.1.0"_s;
        QTest::newRow("error status with a readable body counts")
            << false << true << 503 << releaseRecord(u"1.0"_s) << true << 1
            << (compared(u"1.0"_s) << u"✅ Update available!"_s) << QString();
        QTest::newRow("service says no success: state kept")
            << true << false << 200 << QByteArray(R"({"success":false,"data":null,"error":"maintenance"})")
            << true << 0 << QStringList() << u"failed"_s;
        QTest::newRow("no release record: state kept")
            << true << true << 200 << QByteArray(R"({"success":true})") << true << 0 << QStringList()
            << QString();
        QTest::newRow("record lacks a member: state kept")
            << true << false << 200
            << QByteArray(R"({"success":true,"data":{"current_version":"2.0","download_url":"u",
                "release_notes":"","force_update":false}})")
            << true << 0
            << QStringList { u"Version check error: release record: missing member \"minimum_supported_version\""_s }
            << u"failed"_s;
        QTest::newRow("not JSON: state kept") << false << true << 502 << QByteArray("Bad Gateway") << false
                                              << 0 << QStringList { u"Version check error: "_s } << QString();
        QTest::newRow("nobody listens: state kept")
            << true << false << 0 << QByteArray() << true << 0 << QStringList { u"Version check error: "_s }
            << u"failed"_s;
    }
    void check()
    {
        QFETCH(bool, knownBefore);
        QFETCH(bool, silent);
        QFETCH(int, status);
        QFETCH(QByteArray, body);
        QFETCH(bool, available);
        QFETCH(int, notifications);
        QFETCH(QStringList, log);
        QFETCH(QString, told);

        UpdateService service(*m_storage, { { u"name"_s, u"Tessary"_s }, { u"version"_s, u"0.1.0"_s } });
        if (knownBefore) {
            m_server->route("/api/v1/version", jsonReply(200, releaseRecord(u"9.0.0"_s)));
            QCOMPARE(runCheck(service, true), 1);
            QVERIFY(service.updateAvailable());
        }
        if (status == 0)
            m_storage->setApiBase(u"http://127.0.0.1:1/api/v1"_s); // nothing listens on port 1
        else
            m_server->route("/api/v1/version", jsonReply(status, body));

        QStringList toldUser;
        connect(&service, &UpdateService::upToDate, this,
            [&](const QString &version) { toldUser << u"up to date "_s + version; });
        connect(
            &service, &UpdateService::checkFailed, this, [&](const QString &) { toldUser << u"failed"_s; });
        AlertAnswerer alert(service, u"Later"_s);
        const QDateTime before = QDateTime::currentDateTime();

        StdoutCapture out;
        QCOMPARE(runCheck(service, silent), notifications);
        const QStringList printed = out.lines();

        QCOMPARE(service.updateAvailable(), available);
        QCOMPARE(printed.size(), log.size());
        for (qsizetype i = 0; i < log.size(); ++i)
            QVERIFY2(printed.at(i).startsWith(log.at(i)), qPrintable(printed.at(i)));
        QCOMPARE(toldUser, told.isEmpty() ? QStringList() : QStringList { told });
        // An update found by a silent check is for the tray menu to show, not an alert.
        QCOMPARE(alert.shown, QStringList());
        // Renewed on every path, so a failing service is asked again only a day later.
        QVERIFY(m_storage->lastVersionCheck() >= before.addMSecs(-1000));
        QVERIFY(!service.shouldCheckForUpdates());
    }
    void alert_data()
    {
        QTest::addColumn<QString>("answer");
        QTest::addColumn<QList<QUrl>>("opened");

        QTest::newRow("Download opens the release")
            << u"Download"_s << QList<QUrl> { QUrl(u"https://example.org/t-2.0.0"_s) };
        QTest::newRow("Later does nothing") << u"Later"_s << QList<QUrl>();
        QTest::newRow("Skip This Version does nothing either") << u"Skip This Version"_s << QList<QUrl>();
    }
    void alert()
    {
        QFETCH(QString, answer);
        QFETCH(QList<QUrl>, opened);

        m_server->route("/api/v1/version", jsonReply(200, releaseRecord(u"2.0.0"_s)));
        UpdateService service(*m_storage, { { u"version"_s, u"1.9"_s } });
        BrowserCatcher browser;
        AlertAnswerer alert(service, answer);
        QSignalSpy toldUpToDate(&service, &UpdateService::upToDate);

        QCOMPARE(runCheck(service, false), 1);

        QTRY_COMPARE(alert.shown,
            QStringList { u"Update Available / Version 2.0.0 is now available.\n\nFaster rewrites. / "
                          "Download, Later, Skip This Version"_s });
        QCOMPARE(browser.opened, opened);
        QCOMPARE(toldUpToDate.size(), 0);
        // Whatever the answer, nothing is remembered: the menu keeps offering the release,
        // and the next check announces it again.
        QVERIFY(service.updateAvailable());
        QCOMPARE(runCheck(service, true), 1);
        QVERIFY(service.updateAvailable());
        service.openDownloadURL();
        QCOMPARE(browser.opened.last(), QUrl(u"https://example.org/t-2.0.0"_s));
    }

private:
    // Runs one check to its end and returns the status notifications it posted.
    int runCheck(UpdateService &service, bool silent)
    {
        QSignalSpy status(&service, &UpdateService::updateStatusChanged);
        QSignalSpy checking(&service, &UpdateService::isCheckingForUpdatesChanged);
        m_storage->setLastVersionCheck({});
        service.checkForUpdates(silent);
        [&] { QTRY_VERIFY_WITH_TIMEOUT(!service.isCheckingForUpdates() && checking.size() == 2, 10000); }();
        return int(status.size());
    }

    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<StorageManager> m_storage;
    std::unique_ptr<FixtureServer> m_server;
};

QTEST_MAIN(TestUpdateService)
#include "TestUpdateService.moc"
