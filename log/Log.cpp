#include "Log.h"

#include <QMutex>
#include <QProcessEnvironment>

#include <atomic>
#include <cstdio>
#include <sys/stat.h>

using namespace Qt::StringLiterals;

namespace Log {

namespace {
QMutex mutex; // the stream reader logs from its transfer thread
std::atomic<Detail> currentDetail = Detail::Full;

QString valueOf(const QStringList &environment, QStringView name)
{
    for (const QString &entry : environment) {
        if (entry.size() > name.size() && entry.startsWith(name) && entry.at(name.size()) == u'=')
            return entry.mid(name.size() + 1);
    }
    return {};
}
} // namespace

Detail chooseDetail(const QStringList &environment, const QString &stdoutDeviceInode)
{
    const QString asked = valueOf(environment, u"TESSARY_LOG");
    if (asked == u"full"_s)
        return Detail::Full;
    if (asked == u"private"_s)
        return Detail::Private;
    const QString journal = valueOf(environment, u"JOURNAL_STREAM");
    if (!journal.isEmpty() && journal == stdoutDeviceInode)
        return Detail::Private;
    if (!valueOf(environment, u"GIO_LAUNCHED_DESKTOP_FILE").isEmpty())
        return Detail::Private;
    return Detail::Full;
}

Detail detailFromProcess()
{
    QString deviceInode;
    struct stat status = {};
    if (fstat(fileno(stdout), &status) == 0)
        deviceInode = u"%1:%2"_s.arg(quint64(status.st_dev)).arg(quint64(status.st_ino));
    return chooseDetail(QProcessEnvironment::systemEnvironment().toStringList(), deviceInode);
}

void setDetail(Detail detail)
{
    currentDetail = detail;
}

Detail detail()
{
    return currentDetail;
}

QString content(const QString &value)
{
    if (currentDetail == Detail::Full)
        return value;
    return u"[%1 characters]"_s.arg(value.size());
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
