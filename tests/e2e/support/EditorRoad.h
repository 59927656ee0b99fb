#pragma once

// What the end-to-end roads through a real editor share: the text, the user's clipboard
// before it, Tessary's settings, and what the editor saved, read back.
#include <QFile>
#include <QProcess>

namespace EditorRoad {

inline const QString paragraph = QStringLiteral("Keep this. Please rewrite this sentence now. Keep that.");
inline const QString sentence = QStringLiteral("Please rewrite this sentence now.");
// A 1×1 PNG: the user's clipboard holds an image, which must be there again after Replace.
inline const QByteArray image = QByteArray::fromBase64(
    "iVBORw0KGgoAAAANSUhEUgAAAAEAAAABCAYAAAAfFcSJAAAADUlEQVR42mP8z8DwHwAFBQIAX8jx0gAAAABJRU5ErkJggg==");

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

// Tessary's settings for a road: a key for the stand-in service and one sample.
inline const QByteArray settings = "[General]\napi_key=e2e-key\nhumanize_examples=Hi all.\n";

} // namespace EditorRoad
