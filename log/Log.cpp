#include "Log.h"

#include <QMutex>

#include <cstdio>

namespace Log {

namespace {
QMutex mutex; // the stream reader logs from its transfer thread
}

void write(const QString &line)
{
    const QByteArray bytes = line.toUtf8() + '\n';
    const QMutexLocker lock(&mutex);
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stdout);
    std::fflush(stdout);
}

void write(const QString &glyph, const QString &tag, const QString &message)
{
    write(glyph + QStringLiteral(" [") + tag + QStringLiteral("] ") + message);
}

} // namespace Log
