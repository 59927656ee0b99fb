// Starts a program in a tray under the current X session, lets it settle, and reports
// its resident memory after 10 s and how often it woke up over the next 30 s of doing
// nothing (from /proc). The same for copyq, as a reference.

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>

#include <cstdio>
#include <optional>

using namespace Qt::StringLiterals;

namespace {

constexpr int settleSeconds = 10;
constexpr int idleSeconds = 30;
constexpr double rssTargetMb = 40.0;
constexpr double wakeupTarget = 1.0; // per second

struct Figures
{
    double rssMb = 0;
    double wakeupsPerSecond = 0;
};

std::optional<double> rssMb(qint64 pid)
{
    QFile status(u"/proc/%1/status"_s.arg(pid));
    if (!status.open(QIODevice::ReadOnly))
        return std::nullopt;
    for (const QByteArray &line : status.readAll().split('\n')) {
        if (line.startsWith("VmRSS:"))
            return line.mid(6).trimmed().split(' ').value(0).toDouble() / 1024.0;
    }
    return std::nullopt;
}

// Times any thread of the process was put on a CPU: each is one wake-up.
qint64 timesScheduled(qint64 pid)
{
    qint64 total = 0;
    const QDir tasks(u"/proc/%1/task"_s.arg(pid));
    for (const QString &task : tasks.entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        QFile schedstat(tasks.filePath(task + u"/schedstat"_s));
        if (schedstat.open(QIODevice::ReadOnly))
            total += schedstat.readAll().trimmed().split(' ').value(2).toLongLong();
    }
    return total;
}

std::optional<Figures> measure(
    const QString &program, const QStringList &arguments, const QTemporaryDir &config)
{
    QProcess process;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(u"XDG_CONFIG_HOME"_s, config.path());
    process.setProcessEnvironment(env);
    process.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    process.setStandardOutputFile(QProcess::nullDevice());
    process.start(program, arguments);
    if (!process.waitForStarted()) {
        std::fprintf(stderr, "idle: cannot start %s\n", qPrintable(program));
        return std::nullopt;
    }
    const qint64 pid = process.processId();
    QThread::sleep(settleSeconds);
    Figures figures;
    const auto rss = rssMb(pid);
    const qint64 before = timesScheduled(pid);
    QThread::sleep(idleSeconds);
    const qint64 after = timesScheduled(pid);
    process.terminate();
    if (!process.waitForFinished(5000))
        process.kill();
    if (!rss)
        return std::nullopt;
    figures.rssMb = *rss;
    figures.wakeupsPerSecond = double(after - before) / idleSeconds;
    return figures;
}

void print(const char *name, const std::optional<Figures> &figures)
{
    if (figures)
        std::printf("%-10s %10.1f %16.2f\n", name, figures->rssMb, figures->wakeupsPerSecond);
    else
        std::printf("%-10s %10s %16s\n", name, "n/a", "n/a");
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    if (qEnvironmentVariableIsEmpty("DISPLAY")) {
        std::fprintf(stderr, "idle: needs an X session (run it through scripts/headless-session)\n");
        return 2;
    }

    QProcess tray;
    tray.start(u"trayer"_s, { u"--edge"_s, u"top"_s, u"--align"_s, u"right"_s });
    tray.waitForStarted();

    QTemporaryDir tessaryConfig;
    QDir().mkpath(tessaryConfig.filePath(u"Tessary"_s));
    QFile conf(tessaryConfig.filePath(u"Tessary/Tessary.conf"_s));
    if (conf.open(QIODevice::WriteOnly))
        conf.write("[General]\napi_key=bench\nupdate_check_enabled=false\n");
    conf.close();
    const auto tessary = measure(QStringLiteral(TESSARY_PROGRAM), {}, tessaryConfig);

    QTemporaryDir copyqConfig;
    const auto copyq = measure(u"copyq"_s, {}, copyqConfig);

    tray.terminate();
    tray.waitForFinished(5000);

    std::printf("Idle in a tray: RSS after %d s, wake-ups over %d s\n", settleSeconds, idleSeconds);
    std::printf("%-10s %10s %16s\n", "", "RSS (MB)", "wake-ups per s");
    print("tessary", tessary);
    print("copyq", copyq);
    std::printf("%-10s %10s %16s\n", "target", "< 40", "< 1");
    if (!tessary)
        return 1;
    const bool met = tessary->rssMb < rssTargetMb && tessary->wakeupsPerSecond < wakeupTarget;
    std::printf("tessary %s the targets\n", met ? "meets" : "misses");
    return 0;
}
