// dbus_burst_e2e: the real program under a flood on the session bus. 1,000 Trigger()
// calls are sent without waiting, then one more whose answer is timed: the window thread
// answers it only after it has handled every call before it. Then twenty 10 MB texts are
// handed to HumanizeSelectedText without waiting, and one more whose answer is timed: it
// must be an error the caller sees (the text is over the limit); that time is printed as
// a figure. A Trigger() after it is timed like the first. The program's resident memory is read before the
// floods and once it has settled after. Targets: every answer within 100 ms; resident memory within 10 MB of
// where it began.

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDeadlineTimer>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>

#include <cstdio>
#include <optional>

using namespace Qt::StringLiterals;

namespace {

constexpr int triggers = 1000;
constexpr qsizetype hugeText = 10 * 1000 * 1000;
constexpr int hugeTexts = 20;
constexpr double answerTargetMs = 100;
constexpr double memoryTargetMb = 10;

const QString service = u"app.tessary.Tessary"_s;
const QString path = u"/app/tessary/Tessary"_s;

QDBusMessage call(const QString &method, const QVariantList &arguments = {})
{
    QDBusMessage message = QDBusMessage::createMethodCall(service, path, service, method);
    message.setArguments(arguments);
    return message;
}

// ms until the program has answered a call with the expected kind of reply, or nullopt
// when it did not within 120 s.
std::optional<double> timedCall(
    const QDBusMessage &message, QDBusMessage::MessageType expected = QDBusMessage::ReplyMessage)
{
    QElapsedTimer clock;
    clock.start();
    const QDBusMessage reply = QDBusConnection::sessionBus().call(message, QDBus::Block, 120000);
    if (reply.type() != expected)
        return std::nullopt;
    return clock.nsecsElapsed() / 1e6;
}

double residentMb(qint64 pid)
{
    QFile status(u"/proc/%1/status"_s.arg(pid));
    if (!status.open(QIODevice::ReadOnly))
        return -1;
    for (const QByteArray &line : status.readAll().split('\n')) {
        if (line.startsWith("VmRSS:"))
            return line.mid(6).trimmed().split(' ').first().toDouble() / 1024;
    }
    return -1;
}

// Resident memory once it has stopped moving by more than 0.5 MB a second.
double settledResidentMb(qint64 pid)
{
    double last = residentMb(pid);
    for (int i = 0; i < 10; ++i) {
        QThread::sleep(1);
        const double now = residentMb(pid);
        if (qAbs(now - last) < 0.5)
            return now;
        last = now;
    }
    return last;
}

void report(const char *what, const std::optional<double> &ms)
{
    if (ms)
        std::printf("%-44s %9.1f ms   (target < %.0f ms)%s\n", what, *ms, answerTargetMs,
            *ms < answerTargetMs ? "" : "   MISSED");
    else
        std::printf("%-44s  no answer within 120 s   MISSED\n", what);
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QTemporaryDir home;
    QProcess tessary;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(u"XDG_CONFIG_HOME"_s, home.filePath(u"config"_s));
    env.insert(u"XDG_DATA_HOME"_s, home.filePath(u"data"_s));
    tessary.setProcessEnvironment(env);
    tessary.setProcessChannelMode(QProcess::ForwardedErrorChannel);
    tessary.setStandardOutputFile(QProcess::nullDevice());
    tessary.start(QStringLiteral(TESSARY_PROGRAM_PATH), {});
    if (!tessary.waitForStarted()) {
        std::fprintf(stderr, "dbus_burst: cannot start %s\n", TESSARY_PROGRAM_PATH);
        return 1;
    }
    const QDeadlineTimer up(20000);
    while (!QDBusConnection::sessionBus().interface()->isServiceRegistered(service) && !up.hasExpired())
        QThread::msleep(50);
    if (!timedCall(call(u"Trigger"_s))) {
        std::fprintf(stderr, "dbus_burst: the program does not answer on the session bus\n");
        return 1;
    }
    const qint64 pid = tessary.processId();
    const double before = settledResidentMb(pid);

    for (int i = 0; i < triggers; ++i)
        QDBusConnection::sessionBus().asyncCall(call(u"Trigger"_s));
    report("Trigger() answered after 1,000 Trigger()", timedCall(call(u"Trigger"_s)));

    const QString huge(hugeText, u'x');
    for (int i = 0; i < hugeTexts; ++i)
        QDBusConnection::sessionBus().asyncCall(call(u"HumanizeSelectedText"_s, { huge }));
    // A figure, not a target: it waits for the 200 MB before it.
    const std::optional<double> refused
        = timedCall(call(u"HumanizeSelectedText"_s, { huge }), QDBusMessage::ErrorMessage);
    if (refused)
        std::printf("%-44s %9.1f ms   (%.0f ms a text)\n", "21st 10 MB text refused, as an error, after",
            *refused, *refused / (hugeTexts + 1));
    else
        std::printf("%-44s  no error reply within 120 s   MISSED\n", "21st 10 MB text refused");
    report("Trigger() answered after the 10 MB texts", timedCall(call(u"Trigger"_s)));

    const double after = settledResidentMb(pid);
    std::printf("%-44s %9.1f MB   before %.1f MB, after %.1f MB   (target < %.0f MB)%s\n",
        "resident memory grew by", after - before, before, after, memoryTargetMb,
        after - before < memoryTargetMb ? "" : "   MISSED");

    tessary.terminate();
    if (!tessary.waitForFinished(5000))
        tessary.kill();
    return 0;
}
