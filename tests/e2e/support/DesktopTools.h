#pragma once

// What every end-to-end desktop plays the user and waits with: command-line tools
// (xdotool, xclip, wl-paste, secret-tool), files to hand them, and the answers of calls
// that another process answers. Nothing here needs a window system.
#include <QFile>
#include <QProcess>
#include <QSignalSpy>
#include <QTest>

#include <memory>
#include <optional>

namespace Desktop {

// Runs a tool to its end without blocking the event loop: xclip asks us for the
// clipboard while we wait for it. Returns standard output; fails the test on error.
inline QByteArray run(const QString &program, const QStringList &arguments, const QByteArray &input = {})
{
    QProcess process;
    QSignalSpy finished(&process, &QProcess::finished);
    process.start(program, arguments);
    if (!process.waitForStarted(5000)) {
        QTest::qFail(qPrintable(program + QStringLiteral(" did not start")), __FILE__, __LINE__);
        return {};
    }
    if (!input.isNull())
        process.write(input);
    process.closeWriteChannel();
    if (process.state() != QProcess::NotRunning && !finished.wait(10000)) {
        process.kill();
        process.waitForFinished();
        QTest::qFail(qPrintable(program + QStringLiteral(" did not finish")), __FILE__, __LINE__);
        return {};
    }
    return process.readAllStandardOutput();
}

inline bool writeFile(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

// Starts an asynchronous call, given the callback it answers through, and waits for the
// answer; none when it does not come in time (and the test fails).
template<typename T, typename Start> std::optional<T> answerOf(Start start)
{
    // Shared, so that an answer later than the wait has somewhere to go.
    auto answer = std::make_shared<std::optional<T>>();
    start([answer](T value) { *answer = std::move(value); });
    [&] { QTRY_VERIFY_WITH_TIMEOUT(answer->has_value(), 5000); }();
    return *answer;
}

} // namespace Desktop
