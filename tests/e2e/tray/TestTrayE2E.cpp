#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QTest>

using namespace Qt::StringLiterals;

namespace {

QString run(const QString &program, const QStringList &arguments)
{
    QProcess process;
    process.start(program, arguments);
    process.waitForFinished(15000);
    return QString::fromUtf8(process.readAllStandardOutput()).trimmed();
}

// The windows of the session whose WM_CLASS or name matches, as xdotool finds them.
QStringList windows(const QString &how, const QString &pattern)
{
    return run(u"xdotool"_s, { u"search"_s, u"--onlyvisible"_s, how, pattern })
        .split(u'\n', Qt::SkipEmptyParts);
}

} // namespace

class TestTrayE2E : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();
    void iconOpensMenuAndQuitEnds();

private:
    void startProgram(QProcess &program, QTemporaryDir &config);

    QProcess m_tray;
};

void TestTrayE2E::initTestCase()
{
    QVERIFY2(qEnvironmentVariableIsSet("DISPLAY"), "runs inside scripts/headless-session");
    run(u"xsetroot"_s, { u"-solid"_s, u"#3b5f7a"_s });
    m_tray.start(u"trayer"_s,
        { u"--edge"_s, u"top"_s, u"--align"_s, u"right"_s, u"--widthtype"_s, u"request"_s, u"--height"_s,
            u"26"_s, u"--tint"_s, u"0xe8e8e8"_s, u"--transparent"_s, u"true"_s, u"--alpha"_s, u"0"_s });
    QVERIFY(m_tray.waitForStarted());
    QTRY_VERIFY(!windows(u"--class"_s, u"trayer"_s).isEmpty());
}

void TestTrayE2E::cleanupTestCase()
{
    m_tray.terminate();
    m_tray.waitForFinished();
}

void TestTrayE2E::startProgram(QProcess &program, QTemporaryDir &config)
{
    // A stored key skips onboarding; checks off keeps the service out of this test.
    QDir().mkpath(config.filePath(u"Tessary"_s));
    QFile conf(config.filePath(u"Tessary/Tessary.conf"_s));
    QVERIFY(conf.open(QIODevice::WriteOnly));
    conf.write("[General]\napi_key=test-key\nupdate_check_enabled=false\n");
    conf.close();
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(u"XDG_CONFIG_HOME"_s, config.path());
    program.setProcessEnvironment(env);
    program.start(qEnvironmentVariable("TESSARY_BINARY_DIR") + u"/tests/tessary-e2e"_s, QStringList());
    QVERIFY(program.waitForStarted());
}

void TestTrayE2E::iconOpensMenuAndQuitEnds()
{
    QTemporaryDir config;
    QProcess program;
    startProgram(program, config);

    // The icon is a small window that the tray host embeds: find it under the host.
    QString icon;
    QTRY_VERIFY_WITH_TIMEOUT(!(icon = windows(u"--classname"_s, u"tessary"_s).value(0)).isEmpty(), 15000);

    // XEmbed hosts send only a click: the icon opens the menu on a left click.
    run(u"xdotool"_s, { u"mousemove"_s, u"--window"_s, icon, u"8"_s, u"8"_s, u"click"_s, u"1"_s });
    // The menu is a second top-level window of the program.
    QTRY_VERIFY_WITH_TIMEOUT(windows(u"--classname"_s, u"tessary"_s).size() > 1, 10000);

    const QString shot = qEnvironmentVariable("TESSARY_BINARY_DIR") + u"/tests/tray-menu.png"_s;
    run(u"import"_s, { u"-window"_s, u"root"_s, u"-crop"_s, u"420x140+1180+0"_s, shot });
    QVERIFY(QFile::exists(shot));

    // Quit is the last item: Up from the top wraps to it.
    run(u"xdotool"_s, { u"key"_s, u"Up"_s, u"Return"_s });
    QVERIFY(program.waitForFinished(10000));
    QCOMPARE(program.exitStatus(), QProcess::NormalExit);
    QCOMPARE(program.exitCode(), 0);
}

QTEST_GUILESS_MAIN(TestTrayE2E)
#include "TestTrayE2E.moc"
