#include "DesktopFixture.h"

#include "ScratchFiles.h"

#include <QProcessEnvironment>
#include <QTest>

using namespace Qt::StringLiterals;

namespace Desktop {

void keys(const QStringList &names)
{
    run(u"xdotool"_s, QStringList { u"key"_s, u"--delay"_s, u"5"_s } + names);
}

void setClipboard(const QByteArray &data, const QString &type)
{
    static QTemporaryDir dir;
    static int count = 0;
    const QString file = dir.filePath(QString::number(++count));
    QVERIFY(writeFile(file, data));
    // xclip stays behind as the owner until somebody else takes the clipboard.
    QVERIFY(QProcess::startDetached(
        u"xclip"_s, { u"-selection"_s, u"clipboard"_s, u"-t"_s, type, u"-i"_s, file }));
    QTRY_VERIFY(clipboard(type) == data);
}

QByteArray clipboard(const QString &type)
{
    return run(u"xclip"_s, { u"-selection"_s, u"clipboard"_s, u"-o"_s, u"-t"_s, type });
}

quint32 activeWindow()
{
    return run(u"xdotool"_s, { u"getactivewindow"_s }).trimmed().toUInt();
}

qint64 windowPid(quint32 window)
{
    return window ? run(u"xdotool"_s, { u"getwindowpid"_s, QString::number(window) }).trimmed().toLongLong()
                  : 0;
}

Window::~Window()
{
    stop();
}

void Window::start(const QString &program, const QStringList &arguments, bool accessible)
{
    m_process = std::make_unique<QProcess>();
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(u"NO_AT_BRIDGE"_s, accessible ? u"0"_s : u"1"_s);
    // Settings in memory only: nothing leaks into the developer's own desktop, and an
    // editor killed by the previous case does not offer to restore its session.
    env.insert(u"GSETTINGS_BACKEND"_s, u"memory"_s);
    env.insert(u"XDG_CONFIG_HOME"_s, m_home.path());
    env.insert(u"XDG_DATA_HOME"_s, m_home.path());
    m_process->setProcessEnvironment(env);
    m_process->setProcessChannelMode(QProcess::ForwardedErrorChannel);
    m_process->start(program, arguments);
    QVERIFY2(m_process->waitForStarted(5000), qPrintable(program));
}

bool Window::waitUntilActive()
{
    const auto active = [&] { return windowPid(activeWindow()) == pid(); };
    [&] { QTRY_VERIFY_WITH_TIMEOUT(active(), 15000); }();
    return active();
}

void Window::stop()
{
    if (!m_process)
        return;
    m_process->kill();
    m_process->waitForFinished(5000);
    m_process.reset();
}

Editor::Editor(const QString &content, bool accessible)
{
    m_lastSaved = content.toUtf8();
    writeFile(filePath(), m_lastSaved);
    start(u"mousepad"_s, { u"--disable-server"_s, u"--encoding=UTF-8"_s, filePath() }, accessible);
}

QString Editor::savedText()
{
    keys({ u"ctrl+s"_s });
    QByteArray saved;
    const auto read = [&] { return (saved = ScratchFiles::read(filePath())) != m_lastSaved; };
    [&] { QTRY_VERIFY_WITH_TIMEOUT(read(), 5000); }();
    m_lastSaved = saved;
    return QString::fromUtf8(saved);
}

Terminal::Terminal(const QString &firstLine)
    : m_firstWord(firstLine.section(u' ', 0, 0))
{
    const QString script = u"echo $$ > \"$2\"; printf '%s\\n' \"$1\"; exec sleep 1000"_s;
    start(u"xterm"_s,
        { u"-geometry"_s, u"80x10+0+0"_s, u"-fa"_s, u"DejaVu Sans Mono"_s, u"-fs"_s, u"12"_s, u"-e"_s,
            u"sh"_s, u"-c"_s, script, u"sh"_s, firstLine, m_dir.filePath(u"job"_s) },
        false);
}

bool Terminal::waitUntilReady()
{
    const auto ready = [this] {
        m_job = ScratchFiles::read(m_dir.filePath(u"job"_s)).trimmed().toLongLong();
        return jobRuns();
    };
    [&] { QTRY_VERIFY_WITH_TIMEOUT(ready(), 10000); }();
    return ready();
}

void Terminal::selectFirstWord()
{
    run(u"xdotool"_s,
        { u"mousemove"_s, u"--window"_s, QString::number(activeWindow()), u"12"_s, u"10"_s, u"click"_s,
            u"--repeat"_s, u"2"_s, u"1"_s });
    QTRY_COMPARE(run(u"xclip"_s, { u"-selection"_s, u"primary"_s, u"-o"_s }), m_firstWord.toUtf8());
}

bool Terminal::jobRuns() const
{
    return m_job > 0 && ScratchFiles::read(u"/proc/%1/comm"_s.arg(m_job)).trimmed() == "sleep";
}

} // namespace Desktop
