// Guards against Replace going astray on Plasma Wayland: the window in front misread, the
// user's editor not given the keyboard back, the popup left without the focus.
#include "kwin/KWinWorkspace.h"

#include <QCoreApplication>
#include <QGuiApplication>
#include <QProcess>
#include <QRasterWindow>
#include <QTest>

using namespace Qt::StringLiterals;

class TestKWinWorkspace : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void frontWindowActivationAndOurOwnWindow()
    {
        KWinWorkspace workspace;
        const auto front = [&] {
            std::optional<std::optional<RunningApplication>> answer;
            workspace.frontmostApplication([&](std::optional<RunningApplication> app) { answer = app; });
            [&] { QTRY_VERIFY_WITH_TIMEOUT(answer.has_value(), 5000); }();
            return answer.value_or(std::nullopt);
        };

        QRasterWindow ours;
        ours.setTitle(u"Tessary popup stand-in"_s);
        ours.resize(200, 120);
        workspace.activateSelf(&ours);
        QVERIFY(QTest::qWaitForWindowActive(&ours));
        QCOMPARE(front().value_or(RunningApplication {}).pid, QCoreApplication::applicationPid());

        // The user's editor comes to the front.
        QProcess editor;
        editor.start(u"mousepad"_s, { u"--disable-server"_s });
        QVERIFY(editor.waitForStarted());
        QTRY_COMPARE_WITH_TIMEOUT(front().value_or(RunningApplication {}).pid, editor.processId(), 15000);
        QTRY_VERIFY(!ours.isActive());

        // Our window takes the keyboard, then gives it back to the editor.
        workspace.activateSelf(&ours);
        QTRY_VERIFY_WITH_TIMEOUT(ours.isActive(), 5000);
        RunningApplication app;
        app.pid = editor.processId();
        std::optional<bool> returned;
        workspace.activate(app, [&](bool active) { returned = active; });
        QTRY_VERIFY_WITH_TIMEOUT(returned.has_value(), 5000);
        QVERIFY(*returned);
        QTRY_VERIFY(!ours.isActive());
        QCOMPARE(front().value_or(RunningApplication {}).pid, editor.processId());

        editor.kill();
        editor.waitForFinished();
    }
};

QTEST_MAIN(TestKWinWorkspace)
#include "TestKWinWorkspace.moc"
