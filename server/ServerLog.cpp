#include "ServerLog.h"

#include <QDateTime>

#include <cstdio>

void serverLog(const QString &message)
{
    const QByteArray line = QDateTime::currentDateTimeUtc().toString(Qt::ISODateWithMs).toUtf8() + ' '
        + message.toUtf8() + '\n';
    // One write per line, so lines from several threads never interleave.
    std::fwrite(line.constData(), 1, size_t(line.size()), stderr);
    std::fflush(stderr);
}
