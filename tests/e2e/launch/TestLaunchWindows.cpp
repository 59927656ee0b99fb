// Faults: a second settings window, the task-bar entry kept or dropped early, onboarding ending wrongly
// or coming back once finished with a paired server, no word of the way to Settings where no tray shows.
#include "AccessibilityHelper.h"
#include "AppDelegate.h"
#include "AppWindows.h"
#include "HumanizeService.h"
#include "MakePlatform.h"
#include "OnboardingModel.h"
#include "Presence.h"
#include "QmlEngine.h"
#include "QuickItems.h"
#include "RewriteSessions.h"
#include "Shortcut.h"
#include "StorageManager.h"
#include "UpdateService.h"

#include <QApplication>
#include <QQuickItem>
#include <QQuickWindow>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;

// The controller's own windows on a real desktop: one settings window however often it
// is asked for, tray-only again shortly after a window closes, and the end of onboarding.
class TestLaunchWindows : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_dir;
    QmlEngine m_qml; // outlives every window made in it
    int m_stores = 0;

    std::unique_ptr<StorageManager> newStore(const QString &apiKey, const QString &serverToken = {})
    {
        // Nothing listens on the discard port: nothing here may reach a service.
        auto storage = std::make_unique<StorageManager>(m_dir.filePath(u"s%1/Tessary.conf"_s.arg(++m_stores)),
            u"http://127.0.0.1:9/api/v1"_s, nullptr, serverToken);
        storage->setApiKey(apiKey);
        return storage;
    }

    static int windowsTitled(const QString &title)
    {
        int count = 0;
        for (QWindow *window : QGuiApplication::topLevelWindows())
            count += window->title() == title ? 1 : 0;
        return count;
    }

private Q_SLOTS:
    void initTestCase()
    {
        if (qEnvironmentVariableIsEmpty("DISPLAY"))
            QSKIP("needs the headless desktop of scripts/headless-session");
    }

    void settingsTwice()
    {
        auto storage = newStore(u"k"_s);
        Platform platform = makePlatform();
        UpdateService updates(*storage, {});
        AppWindows windows(*storage, updates, platform.workspace.get(), m_qml);

        windows.showSettings();
        QQuickWindow *settings = windows.settingsWindow();
        QVERIFY(settings);
        QVERIFY(QTest::qWaitForWindowExposed(settings));
        QCOMPARE(windows.presence().policy(), Presence::Policy::Regular);
        windows.showSettings();
        QCOMPARE(windows.settingsWindow(), settings);
        QCOMPARE(windowsTitled(u"Tessary — Settings"_s), 1);

        // Closing hands the application back to the tray a moment later, not at once.
        settings->close();
        QCOMPARE(windows.presence().policy(), Presence::Policy::Regular);
        QTRY_COMPARE_WITH_TIMEOUT(windows.presence().policy(), Presence::Policy::Accessory, 2000);
        QVERIFY(!settings->isVisible());

        // The same window comes back.
        windows.showSettings();
        QCOMPARE(windows.settingsWindow(), settings);
        QVERIFY(QTest::qWaitForWindowExposed(settings));
        QCOMPARE(windows.presence().policy(), Presence::Policy::Regular);
    }

    // At launch, with a paired server usable and no key or sample: welcomed once, then not
    // again after finishing, unless the server's token has gone.
    void launch_data()
    {
        QTest::addColumn<bool>("finished");
        QTest::addColumn<bool>("paired");
        QTest::addColumn<bool>("welcome");
        QTest::newRow("first start, paired server") << false << true << true;
        QTest::newRow("finished without a sample, paired server") << true << true << false;
        QTest::newRow("finished, the server's token gone") << true << false << true;
    }
    void launch()
    {
        QFETCH(bool, finished);
        QFETCH(bool, paired);
        const QString token = m_dir.filePath(u"client-token-%1"_s.arg(m_stores));
        QFile file(token);
        QVERIFY(!paired
            || (file.open(QIODevice::WriteOnly, QFile::ReadOwner | QFile::WriteOwner) && file.write("t")));
        file.close();
        auto storage = newStore({}, token);
        if (finished)
            storage->setOnboardingFinished();
        Platform platform = makePlatform();
        UpdateService updates(*storage, {});
        AppWindows windows(*storage, updates, platform.workspace.get(), m_qml);
        Shortcut shortcut(nullptr);
        AccessibilityHelper textAccess(platform);
        HumanizeService rewriter(*storage);
        RewriteSessions sessions(
            { textAccess, platform.workspace.get(), *platform.pasteboard, rewriter }, m_qml);
        AppDelegate({ windows, shortcut, sessions, updates, *storage }).applicationDidFinishLaunching();
        QTEST(windows.onboardingWindow() != nullptr, "welcome");
    }

    // Where the desktop shows no tray icon, the welcome page says how Settings open again;
    // where it shows one, the page says nothing of it.
    void welcomeWithoutATray_data()
    {
        QTest::addColumn<bool>("trayShown");
        QTest::newRow("a tray") << true;
        QTest::newRow("no tray") << false;
    }
    void welcomeWithoutATray()
    {
        QFETCH(bool, trayShown);
        auto storage = newStore({});
        Platform platform = makePlatform();
        UpdateService updates(*storage, {});
        AppWindows windows(*storage, updates, platform.workspace.get(), m_qml);
        windows.setTrayShown(trayShown);
        windows.showOnboarding();
        QVERIFY(windows.onboardingWindow());
        QVERIFY(QTest::qWaitForWindowExposed(windows.onboardingWindow()));
        const QQuickItem *note
            = QuickItems::all(windows.onboardingWindow()->contentItem(), u"noTrayNote"_s).value(0);
        QVERIFY(note);
        QCOMPARE(note->isVisible(), !trayShown);
        QVERIFY(note->property("text").toString().contains(u"tessary --settings"_s));
    }

    void onboardingCompletion_data()
    {
        QTest::addColumn<QString>("apiKey");
        QTest::addColumn<bool>("settingsOpens");
        QTest::newRow("key stored: back to the tray") << u"k"_s << false;
        QTest::newRow("no key: Settings at the key field") << QString() << true;
    }
    void onboardingCompletion()
    {
        QFETCH(QString, apiKey);
        QFETCH(bool, settingsOpens);
        auto storage = newStore(apiKey);
        Platform platform = makePlatform();
        UpdateService updates(*storage, {});
        AppWindows windows(*storage, updates, platform.workspace.get(), m_qml);

        windows.showOnboarding();
        QQuickWindow *onboarding = windows.onboardingWindow();
        QVERIFY(onboarding);
        QVERIFY(QTest::qWaitForWindowExposed(onboarding));
        QCOMPARE(windows.presence().policy(), Presence::Policy::Regular);
        auto *model = onboarding->property("model").value<OnboardingModel *>();
        QVERIFY(model);

        QSignalSpy completed(model, &OnboardingModel::completed);
        model->advance();
        model->setSampleText(u"my words"_s);
        model->finish();
        QVERIFY(completed.wait(5000));
        // The window stays for a moment after completion, then goes for good.
        QCOMPARE(windows.onboardingWindow(), onboarding);
        QTRY_VERIFY_WITH_TIMEOUT(!windows.onboardingWindow(), 2000);
        QCOMPARE(storage->examples(), QStringList { u"my words"_s });

        if (settingsOpens) {
            QQuickWindow *settings = windows.settingsWindow();
            QVERIFY(settings);
            QVERIFY(QTest::qWaitForWindowExposed(settings));
            QCOMPARE(windows.presence().policy(), Presence::Policy::Regular);
            QTRY_VERIFY(settings->activeFocusItem());
            QCOMPARE(settings->activeFocusItem()->objectName(), u"apiKeyField"_s);
            // Still there after the moment a closing window would have hidden it.
            QVERIFY(!QTest::qWaitFor([&] { return !settings->isVisible(); }, 300));
        } else {
            QVERIFY(!windows.settingsWindow());
            QCOMPARE(windows.presence().policy(), Presence::Policy::Accessory);
        }
    }
};

QTEST_MAIN(TestLaunchWindows)
#include "TestLaunchWindows.moc"
