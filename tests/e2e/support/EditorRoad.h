#pragma once

// What the end-to-end roads through a real editor share: the model's scripted rewrite,
// the user's clipboard before it, Tessary started with a throw-away configuration, and
// what the editor saved, read back.
#include "FixtureServer.h"

#include <QDir>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>

namespace EditorRoad {

inline const QString paragraph = QStringLiteral("Keep this. Please rewrite this sentence now. Keep that.");
inline const QString sentence = QStringLiteral("Please rewrite this sentence now.");
// A 1×1 PNG: the user's clipboard holds an image, which must be there again after Replace.
inline const QByteArray image = QByteArray::fromBase64(
    "iVBORw0KGgoAAAANSUhEUgAAAAEAAAABCAYAAAAfFcSJAAAADUlEQVR42mP8z8DwHwAFBQIAX8jx0gAAAABJRU5ErkJggg==");

// The model's answer: the rewrite, streamed in one piece.
inline std::function<FixtureReply(const FixtureRequest &)> streamed(const QString &rewrite)
{
    return [rewrite](const FixtureRequest &) {
        FixtureReply reply;
        reply.headers = { { "Content-Type", "text/event-stream" } };
        reply.body = "data: {\"choices\":[{\"delta\":{\"content\":\"" + rewrite.toUtf8()
            + "\"}}]}\n\ndata: [DONE]\n\n";
        return reply;
    };
}

// A command-line tool's output, given input.
inline QByteArray run(const QString &program, const QStringList &arguments, const QByteArray &input = {})
{
    QProcess process;
    process.start(program, arguments);
    process.write(input);
    process.closeWriteChannel();
    return process.waitForFinished(5000) ? process.readAllStandardOutput() : QByteArray();
}

inline QString contents(const QString &path)
{
    QFile file(path);
    return file.open(QIODevice::ReadOnly) ? QString::fromUtf8(file.readAll()) : QString();
}

inline bool write(const QString &path, const QByteArray &bytes)
{
    QFile file(path);
    return file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size();
}

// Tessary's end-to-end build, configured in its own folder under dir, its log collected
// as it comes; stopped when this goes.
class Tessary : public QObject
{
public:
    explicit Tessary(const QTemporaryDir &dir)
    {
        QDir(dir.path()).mkpath(QStringLiteral("config/Tessary"));
        write(dir.filePath(QStringLiteral("config/Tessary/Tessary.conf")),
            "[General]\napi_key=e2e-key\nhumanize_examples=Hi all.\n");
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("XDG_CONFIG_HOME"), dir.filePath(QStringLiteral("config")));
        m_process.setProcessEnvironment(env);
        connect(&m_process, &QProcess::readyReadStandardOutput, this,
            [this] { log += QString::fromUtf8(m_process.readAllStandardOutput()); });
        m_process.start(binary());
    }

    ~Tessary() override
    {
        m_process.terminate();
        m_process.waitForFinished(5000);
    }

    static QString binary()
    {
        return qEnvironmentVariable("TESSARY_BINARY_DIR") + QStringLiteral("/tests/tessary-e2e");
    }

    QString log;

private:
    QProcess m_process;
};

} // namespace EditorRoad
