// Faults: onboarding opened with a key stored or missed without one, the launch check early, late or not due,
// a second start or --settings that opens no Settings, a tray promised where none shows.
#include "DesktopFixture.h"
#include "Replies.h"
#include "StorageManager.h"
#include "TessaryProcess.h"

#include <QSignalSpy>

#include <optional>

using namespace Qt::StringLiterals;

Q_DECLARE_METATYPE(std::optional<QDateTime>)

// The whole program started as a user starts it, in a throw-away desktop: what it
// prints, which windows it maps (the task bar lists the window manager's clients) and
// when it asks the service for the current version.
class TestLaunch : public QObject
{
    Q_OBJECT

private:
    // Writes the settings through the store itself, so the file is what the program reads.
    static void configure(TessaryProcess &program, const QString &apiKey, const QStringList &samples,
        bool checksEnabled, const std::optional<QDateTime> &lastCheck)
    {
        StorageManager storage(program.path(u"Tessary/Tessary.conf"_s), QString());
        storage.setApiKey(apiKey);
        storage.setExamples(samples);
        storage.setUpdateCheckEnabled(checksEnabled);
        if (lastCheck)
            storage.setLastVersionCheck(*lastCheck);
    }

    // Titles of the managed windows that belong to the process: its task-bar entries.
    static QStringList taskBarEntries(qint64 pid)
    {
        const QString list
            = QString::fromUtf8(Desktop::run(u"xprop"_s, { u"-root"_s, u"_NET_CLIENT_LIST"_s }));
        const qsizetype hash = list.indexOf(u'#');
        QStringList titles;
        if (hash < 0)
            return titles;
        for (const QString &id : list.mid(hash + 1).split(u',', Qt::SkipEmptyParts)) {
            const QString props = QString::fromUtf8(
                Desktop::run(u"xprop"_s, { u"-id"_s, id.trimmed(), u"_NET_WM_PID"_s, u"WM_NAME"_s }));
            if (!props.contains(u"_NET_WM_PID(CARDINAL) = "_s + QString::number(pid)))
                continue;
            const qsizetype quote = props.indexOf(u'"');
            titles.append(props.mid(quote + 1).section(u'"', 0, 0));
        }
        return titles;
    }

private Q_SLOTS:
    void initTestCase()
    {
        if (qEnvironmentVariableIsEmpty("DISPLAY"))
            QSKIP("needs the headless desktop of scripts/headless-session");
    }

    // Without an API key the first-run window opens and shows in the task bar, whatever
    // samples are stored; with one, Tessary stays in the tray.
    void firstWindow_data()
    {
        QTest::addColumn<QString>("apiKey");
        QTest::addColumn<QStringList>("samples");
        QTest::addColumn<QString>("samplesLine");
        QTest::addColumn<QStringList>("entries");

        QTest::newRow("samples but no key")
            << QString() << QStringList { u"mine"_s } << u"StorageManager.shared.examples.isEmpty false"_s
            << QStringList { u"Welcome to Tessary"_s };
        QTest::newRow("key but no samples")
            << u"sk-test"_s << QStringList() << u"StorageManager.shared.examples.isEmpty true"_s
            << QStringList();
    }
    void firstWindow()
    {
        QFETCH(QString, apiKey);
        QFETCH(QStringList, samples);
        QFETCH(QString, samplesLine);
        QFETCH(QStringList, entries);

        TessaryProcess program;
        configure(program, apiKey, samples, false, std::nullopt);
        QVERIFY(program.start());
        QTRY_VERIFY_WITH_TIMEOUT(program.log.count(u'\n') >= 2, 10000);
        QCOMPARE(program.log.split(u'\n').mid(0, 2), (QStringList { u">>> LAUNCHED"_s, samplesLine }));
        if (entries.isEmpty()) {
            // Nothing marks a window that never comes: watch for one as long as one would take.
            const auto shown = [&] { return !taskBarEntries(program.processId()).isEmpty(); };
            QVERIFY2(
                !QTest::qWaitFor(shown, 1500), qPrintable(taskBarEntries(program.processId()).join(u", ")));
        } else {
            QTRY_COMPARE_WITH_TIMEOUT(taskBarEntries(program.processId()), entries, 10000);
        }
    }

    // Settings without a tray: a second start, or `tessary --settings`, opens them in the
    // running instance (or in this one, when none runs); the second process ends at once.
    // This desktop shows no tray icons, and stderr says how Settings open instead.
    void settingsWithoutATray_data()
    {
        QTest::addColumn<QStringList>("first"); // the arguments of the first start
        QTest::addColumn<QStringList>("second"); // of the second; none: no second start

        QTest::newRow("started again") << QStringList() << QStringList { u"<none>"_s };
        QTest::newRow("--settings while it runs") << QStringList() << QStringList { u"--settings"_s };
        QTest::newRow("--settings as the first start") << QStringList { u"--settings"_s } << QStringList();
    }
    void settingsWithoutATray()
    {
        QFETCH(QStringList, first);
        QFETCH(QStringList, second);

        TessaryProcess program;
        configure(program, u"sk-test"_s, { u"mine"_s }, false, std::nullopt);
        QVERIFY(program.start(first));
        QTRY_VERIFY_WITH_TIMEOUT(program.log.contains(u"StorageManager.shared.examples.isEmpty"_s), 10000);
        const QStringList settings { u"Tessary — Settings"_s };
        if (!second.isEmpty()) {
            // Nothing marks a window that never comes: watch for one as long as one would take.
            QVERIFY(!QTest::qWaitFor([&] { return !taskBarEntries(program.processId()).isEmpty(); }, 1500));
            second.removeAll(u"<none>"_s);
            QProcess again;
            again.setProcessEnvironment(program.processEnvironment());
            again.start(TessaryProcess::program(), second);
            QVERIFY(again.waitForFinished(10000));
            QCOMPARE(again.exitCode(), 0);
            QCOMPARE(again.readAllStandardError(), QByteArray());
        }
        QTRY_COMPARE_WITH_TIMEOUT(taskBarEntries(program.processId()), settings, 10000);

        const QString errors = QString::fromUtf8(program.readAllStandardError());
        QVERIFY2(errors.contains(u"This desktop shows no tray icons: start `tessary` again"_s),
            qPrintable(errors));
        QVERIFY2(!errors.contains(u"tray menu works"_s), qPrintable(errors));
    }

    // The silent check after launch, once, only when one is due.
    void versionCheck_data()
    {
        QTest::addColumn<std::optional<QDateTime>>("lastCheck");
        QTest::addColumn<bool>("asked");

        // When a check is due is TestUpdateService::due's; these rows see that launch asks it.
        const QDateTime now = QDateTime::currentDateTime();
        QTest::newRow("checked two days ago") << std::optional(now.addDays(-2)) << true;
        QTest::newRow("checked an hour ago") << std::optional(now.addSecs(-3600)) << false;
    }
    void versionCheck()
    {
        QFETCH(std::optional<QDateTime>, lastCheck);
        QFETCH(bool, asked);

        FixtureServer service;
        if (!service.listen(quint16(qEnvironmentVariableIntValue("TESSARY_E2E_API_PORT"))))
            QSKIP("the end-to-end service port is taken");
        service.route("/api/v1/version", jsonReply(200, releaseRecord(u"0.0.1"_s)));
        TessaryProcess program;
        QList<bool> checks; // one per request: whether the program had said it launched
        connect(&service, &FixtureServer::requestReceived, this, [&](const FixtureRequest &request) {
            if (request.path.startsWith("/api/v1/version"))
                checks.append(program.log.contains(u">>> LAUNCHED"_s));
        });

        configure(program, u"sk-test"_s, {}, true, lastCheck);
        QVERIFY(program.start());
        QTRY_VERIFY_WITH_TIMEOUT(program.log.contains(u">>> LAUNCHED"_s), 10000);
        if (asked) {
            QTRY_VERIFY_WITH_TIMEOUT(!checks.isEmpty(), 6000);
            // Ended with the event loop running, so a second request would still be counted.
            QSignalSpy ended(&program, &QProcess::finished);
            program.terminate();
            QVERIFY(ended.wait(5000));
            QCOMPARE(checks, QList<bool> { true });
        } else {
            // Nothing marks a check that never comes: give it well past its 2 s.
            QSignalSpy asked(&service, &FixtureServer::requestReceived);
            QVERIFY(!asked.wait(3500));
        }
    }
};

QTEST_GUILESS_MAIN(TestLaunch)
#include "TestLaunch.moc"
