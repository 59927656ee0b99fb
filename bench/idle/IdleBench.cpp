// Starts a program in a tray under the current X session, lets it settle, and reports
// its resident memory after 10 s and how often it woke up over the next 30 s of doing
// nothing (from /proc). The same for copyq, as a reference.

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QHash>
#include <QMap>
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
    double anonymousMb = 0;
    double wakeupsPerSecond = 0;
    int threadsEnded = 0;
    QMap<QString, qint64> wakeupsByThread;
};

// One field of a "Key:   value kB" file of /proc.
std::optional<double> procField(const QString &path, QByteArrayView key)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    for (const QByteArray &line : file.readAll().split('\n')) {
        if (line.startsWith(key) && line.size() > key.size() && line.at(key.size()) == ':')
            return line.mid(key.size() + 1).trimmed().split(' ').value(0).toDouble();
    }
    return std::nullopt;
}

// A thread id can be reused once its thread ends: the id together with the thread's
// start time names one thread.
struct ThreadSample
{
    QString name;
    qint64 wakeups = 0;
};
using Threads = QHash<QString, ThreadSample>;

// Each voluntary context switch is a thread going to sleep; running again is one
// wake-up. (Preemptions of a running thread are none, and are left out.)
Threads sampleThreads(qint64 pid)
{
    Threads threads;
    const QDir tasks(u"/proc/%1/task"_s.arg(pid));
    for (const QString &task : tasks.entryList(QDir::Dirs | QDir::NoDotAndDotDot)) {
        QFile stat(tasks.filePath(task + u"/stat"_s));
        if (!stat.open(QIODevice::ReadOnly))
            continue; // ended between the listing and the read
        // "tid (name) state ...": the name may hold spaces and parentheses, so fields
        // count from the last ')'; the start time is field 22.
        const QByteArray line = stat.readAll();
        const qsizetype open = line.indexOf('(');
        const qsizetype close = line.lastIndexOf(')');
        const QList<QByteArray> fields = line.mid(close + 2).split(' ');
        const auto wakeups = procField(tasks.filePath(task + u"/status"_s), "voluntary_ctxt_switches");
        if (open < 0 || close < open || fields.size() < 20 || !wakeups)
            continue;
        threads.insert(task + u'@' + QString::fromLatin1(fields.at(19)),
            { QString::fromUtf8(line.mid(open + 1, close - open - 1)), qint64(*wakeups) });
    }
    return threads;
}

// Counts every thread's wake-ups over the idle time, sampling once a second, so that
// threads which end meanwhile (idle pool threads expire) keep what they counted up to
// their last second instead of taking it out of the total.
void countWakeups(qint64 pid, Figures &figures)
{
    const Threads first = sampleThreads(pid);
    Threads last = first;
    Threads now = first;
    for (int second = 0; second < idleSeconds; ++second) {
        QThread::sleep(1);
        now = sampleThreads(pid);
        for (auto it = now.cbegin(); it != now.cend(); ++it)
            last.insert(it.key(), it.value());
    }
    qint64 total = 0;
    for (auto it = last.cbegin(); it != last.cend(); ++it) {
        // A thread started during the idle time counts from zero.
        const qint64 wakeups = it.value().wakeups - first.value(it.key()).wakeups;
        total += wakeups;
        figures.wakeupsByThread[it.value().name] += wakeups;
        if (!now.contains(it.key()))
            ++figures.threadsEnded;
    }
    figures.wakeupsPerSecond = double(total) / idleSeconds;
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
    const auto rss = procField(u"/proc/%1/smaps_rollup"_s.arg(pid), "Rss");
    const auto anonymous = procField(u"/proc/%1/smaps_rollup"_s.arg(pid), "Anonymous");
    countWakeups(pid, figures);
    const bool ranThrough = process.state() == QProcess::Running;
    process.terminate();
    if (!process.waitForFinished(5000))
        process.kill();
    if (!rss || !anonymous || !ranThrough)
        return std::nullopt;
    figures.rssMb = *rss / 1024.0;
    figures.anonymousMb = *anonymous / 1024.0;
    return figures;
}

void print(const char *name, const std::optional<Figures> &figures)
{
    if (!figures) {
        std::printf("%-10s %10s %10s %16s\n", name, "n/a", "n/a", "n/a");
        return;
    }
    std::printf("%-10s %10.1f %10.1f %16.2f\n", name, figures->rssMb, figures->anonymousMb,
        figures->wakeupsPerSecond);
}

// Which threads woke, so a figure over the target says where to look.
void printThreads(const char *name, const std::optional<Figures> &figures)
{
    if (!figures)
        return;
    QStringList threads;
    for (auto it = figures->wakeupsByThread.cbegin(); it != figures->wakeupsByThread.cend(); ++it)
        threads.append(u"%1 %2"_s.arg(it.key()).arg(it.value()));
    std::printf("%s wake-ups by thread: %s; %d thread(s) ended while idle\n", name,
        qPrintable(threads.join(u", "_s)), figures->threadsEnded);
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
    std::printf("%-10s %10s %10s %16s\n", "", "RSS (MB)", "anon (MB)", "wake-ups per s");
    print("tessary", tessary);
    print("copyq", copyq);
    std::printf("%-10s %10s %10s %16s\n", "target", "< 40", "", "< 1");
    printThreads("tessary", tessary);
    printThreads("copyq", copyq);
    if (!tessary)
        return 1;
    const bool met = tessary->rssMb < rssTargetMb && tessary->wakeupsPerSecond < wakeupTarget;
    std::printf("tessary %s the targets\n", met ? "meets" : "misses");
    return 0;
}
