// startup_e2e: how long a user waits from starting Tessary until it is in the tray, as
// the median of 10 starts: exec to the ">>> LAUNCHED" line (the launch sequence
// begins), and exec to the first answer on the session bus, which can only come once
// the launch sequence, tray icon included, has finished and the event loop runs.
// copyq, another Qt tray program, is measured beside it from exec until its server
// answers a client.

#include "StorageManager.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QElapsedTimer>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>

#include <algorithm>
#include <cstdio>
#include <optional>
#include <vector>

using namespace Qt::StringLiterals;

namespace {

constexpr int runs = 10;
constexpr int targetMs = 300;

QProcessEnvironment environmentWith(const QString &configHome)
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(u"XDG_CONFIG_HOME"_s, configHome);
    return env;
}

void stop(QProcess &process)
{
    process.terminate();
    if (!process.waitForFinished(3000)) {
        process.kill();
        process.waitForFinished(3000);
    }
}

struct Start
{
    std::optional<double> launched; // ms from exec to ">>> LAUNCHED"
    std::optional<double> ready; // ms from exec to the first answer on the bus
};

bool answersOnBus()
{
    const QDBusMessage ping = QDBusMessage::createMethodCall(
        u"app.tessary.Tessary"_s, u"/"_s, u"org.freedesktop.DBus.Peer"_s, u"Ping"_s);
    return QDBusConnection::sessionBus().call(ping, QDBus::Block, 1000).type() == QDBusMessage::ReplyMessage;
}

Start startTessary()
{
    QTemporaryDir config;
    {
        // A returning user: key stored, so the launch ends in the tray, not in onboarding.
        StorageManager storage(config.filePath(u"Tessary/Tessary.conf"_s), QString());
        storage.setApiKey(u"sk-bench"_s);
        storage.setExamples({ u"A sample."_s });
    }
    QProcess process;
    process.setProcessEnvironment(environmentWith(config.path()));
    QElapsedTimer clock;
    clock.start();
    process.start(QStringLiteral(TESSARY_PROGRAM_PATH), {});
    Start result;
    while (clock.elapsed() < 10000 && !(result.launched && result.ready)) {
        if (!result.launched && process.waitForReadyRead(5)) {
            while (process.canReadLine()) {
                if (process.readLine().trimmed() == ">>> LAUNCHED")
                    result.launched = clock.nsecsElapsed() / 1e6;
            }
        }
        if (!result.ready && answersOnBus())
            result.ready = clock.nsecsElapsed() / 1e6;
    }
    stop(process);
    return result;
}

std::optional<double> startCopyq(const QString &copyq)
{
    QTemporaryDir config;
    const QProcessEnvironment env = environmentWith(config.path());
    QProcess server;
    server.setProcessEnvironment(env);
    QElapsedTimer clock;
    clock.start();
    server.start(copyq, {});
    std::optional<double> result;
    while (clock.elapsed() < 10000) {
        QProcess client;
        client.setProcessEnvironment(env);
        client.start(copyq, { u"count"_s });
        if (client.waitForFinished(2000) && client.exitStatus() == QProcess::NormalExit
            && client.exitCode() == 0) {
            result = clock.nsecsElapsed() / 1e6;
            break;
        }
    }
    QProcess exit;
    exit.setProcessEnvironment(env);
    exit.start(copyq, { u"exit"_s });
    exit.waitForFinished(3000);
    stop(server);
    return result;
}

std::optional<double> median(std::vector<double> samples)
{
    if (samples.empty())
        return std::nullopt;
    std::sort(samples.begin(), samples.end());
    const size_t mid = samples.size() / 2;
    return samples.size() % 2 ? samples[mid] : (samples[mid - 1] + samples[mid]) / 2;
}

template<typename Run> std::optional<double> measure(Run run)
{
    std::vector<double> samples;
    for (int i = 0; i < runs; ++i) {
        if (const auto ms = run())
            samples.push_back(*ms);
    }
    return median(samples);
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    if (qEnvironmentVariableIsEmpty("DISPLAY")) {
        std::fprintf(stderr, "startup_e2e: needs a display; run it through scripts/headless-session\n");
        return 2;
    }
    std::vector<double> launched, ready;
    for (int i = 0; i < runs; ++i) {
        const Start start = startTessary();
        if (start.launched)
            launched.push_back(*start.launched);
        if (start.ready)
            ready.push_back(*start.ready);
    }
    const auto tessary = median(launched);
    const auto tessaryReady = median(ready);
    if (!tessary || !tessaryReady) {
        std::printf("tessary: no launch line, or no answer on the session bus\n");
        return 1;
    }
    std::printf("tessary  exec -> \">>> LAUNCHED\"        p50 of %d: %7.1f ms   (target < %d ms: %s)\n", runs,
        *tessary, targetMs, *tessary < targetMs ? "met" : "MISSED");
    std::printf("tessary  exec -> in the tray, answering p50 of %d: %7.1f ms   (target < %d ms: %s)\n", runs,
        *tessaryReady, targetMs, *tessaryReady < targetMs ? "met" : "MISSED");

    const QString copyq = QStandardPaths::findExecutable(u"copyq"_s);
    if (copyq.isEmpty()) {
        std::printf("copyq    (reference)                    : not installed\n");
    } else if (const auto reference = measure([&] { return startCopyq(copyq); })) {
        std::printf(
            "copyq    exec -> server answers          p50 of %d: %7.1f ms   (reference)\n", runs, *reference);
    } else {
        std::printf("copyq    (reference)                    : its server never answered\n");
    }
    return *tessary < targetMs && *tessaryReady < targetMs ? 0 : 1;
}
