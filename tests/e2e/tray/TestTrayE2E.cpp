// Faults: no icon or menu in a real tray, Quit not ending the program, the shortcut not starting a rewrite.
#include "DesktopFixture.h"
#include "TessaryProcess.h"

#include <QScopeGuard>

#include <xcb/xcb.h>

using namespace Qt::StringLiterals;

namespace {

// A stored key skips onboarding; checks off keeps the service out of this test.
constexpr char settings[] = "[General]\napi_key=test-key\nupdate_check_enabled=false\n";

// The windows of the session whose WM_CLASS or name matches, as xdotool finds them.
QStringList windows(const QString &how, const QString &pattern)
{
    return QString::fromUtf8(Desktop::run(u"xdotool"_s, { u"search"_s, u"--onlyvisible"_s, how, pattern }))
        .split(u'\n', Qt::SkipEmptyParts);
}

} // namespace

class TestTrayE2E : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        QVERIFY2(qEnvironmentVariableIsSet("DISPLAY"), "runs inside scripts/headless-session");
        Desktop::run(u"xsetroot"_s, { u"-solid"_s, u"#3b5f7a"_s });
        m_tray.start(u"trayer"_s,
            { u"--edge"_s, u"top"_s, u"--align"_s, u"right"_s, u"--widthtype"_s, u"request"_s, u"--height"_s,
                u"26"_s, u"--tint"_s, u"0xe8e8e8"_s, u"--transparent"_s, u"true"_s, u"--alpha"_s, u"0"_s });
        QVERIFY(m_tray.waitForStarted());
        QTRY_VERIFY(!windows(u"--class"_s, u"trayer"_s).isEmpty());
    }
    void cleanupTestCase()
    {
        m_tray.terminate();
        m_tray.waitForFinished();
    }
    void iconOpensMenuAndQuitEnds_data()
    {
        QTest::addColumn<bool>("shortcutHeldElsewhere");
        QTest::newRow("shortcut free") << false;
        QTest::newRow("another program holds Ctrl+Alt+H") << true;
    }
    void iconOpensMenuAndQuitEnds()
    {
        QFETCH(bool, shortcutHeldElsewhere);

        xcb_connection_t *other = xcb_connect(nullptr, nullptr);
        const auto disconnect = qScopeGuard([other] { xcb_disconnect(other); });
        if (shortcutHeldElsewhere) {
            const xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(other)).data->root;
            const auto cookie = xcb_grab_key_checked(other, 0, root, XCB_MOD_MASK_CONTROL | XCB_MOD_MASK_1,
                43, XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC);
            QCOMPARE(xcb_request_check(other, cookie), nullptr);
        }

        TessaryProcess program(settings);
        QVERIFY(program.start());
        if (shortcutHeldElsewhere) {
            QByteArray errors;
            QTRY_VERIFY_WITH_TIMEOUT(
                (errors += program.readAllStandardError()).contains("Ctrl+Alt+H is not available"), 15000);
        }

        // The icon is a small window that the tray host embeds: find it under the host.
        QString icon;
        QTRY_VERIFY_WITH_TIMEOUT(!(icon = windows(u"--classname"_s, u"tessary"_s).value(0)).isEmpty(), 15000);

        // XEmbed hosts send only a click: the icon opens the menu on a left click.
        Desktop::run(
            u"xdotool"_s, { u"mousemove"_s, u"--window"_s, icon, u"8"_s, u"8"_s, u"click"_s, u"1"_s });
        // The menu is a second top-level window of the program.
        QTRY_VERIFY_WITH_TIMEOUT(windows(u"--classname"_s, u"tessary"_s).size() > 1, 10000);

        // Quit is the last item: Up from the top wraps to it.
        Desktop::run(u"xdotool"_s, { u"key"_s, u"Up"_s, u"Return"_s });
        QTRY_COMPARE_WITH_TIMEOUT(program.state(), QProcess::NotRunning, 10000);
        QCOMPARE(program.exitStatus(), QProcess::NormalExit);
        QCOMPARE(program.exitCode(), 0);
    }
    void shortcutStartsOneRewritePerPress()
    {
        TessaryProcess program(settings);
        QVERIFY(program.start());
        QTRY_VERIFY_WITH_TIMEOUT(!windows(u"--classname"_s, u"tessary"_s).isEmpty(), 15000);

        // Every rewrite opens the popup, which first remembers the window in front.
        const auto rewrites = [&] { return program.log.count(u"🎯 [AppDelegate] Stored previous app: "_s); };
        // The shortcut is taken a moment after the icon shows (once the launch sequence
        // finds the accessibility bus); presses before that go to the window in front.
        for (int attempt = 0; attempt < 10; ++attempt) {
            Desktop::run(u"xdotool"_s, { u"key"_s, u"ctrl+alt+h"_s });
            if (QTest::qWaitFor([&] { return rewrites() > 0; }, 1500))
                break;
        }
        QCOMPARE(rewrites(), 1);
        Desktop::run(u"xdotool"_s, { u"key"_s, u"ctrl+alt+h"_s });
        QTRY_COMPARE_WITH_TIMEOUT(rewrites(), 2, 10000);
    }

private:
    QProcess m_tray;
};

QTEST_GUILESS_MAIN(TestTrayE2E)
#include "TestTrayE2E.moc"
