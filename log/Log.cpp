#include "Log.h"

#include <QMutex>
#include <QProcessEnvironment>

#include <atomic>
#include <cstdio>
#include <unistd.h>

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

void writeOut(const QString &text)
{
    const QByteArray bytes = text.toUtf8() + '\n';
    const QMutexLocker lock(&mutex);
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stdout);
    std::fflush(stdout);
}

void appendLine(QString &text, Literal glyph, Literal tag, Message message)
{
    const Detail shown = currentDetail;
    text += glyph.view();
    text += u" ["_s;
    text += tag.view();
    text += u"] "_s;
    for (const Part &part : message)
        part.appendTo(text, shown);
}

QString line(Message message)
{
    QString text;
    const Detail shown = currentDetail;
    for (const Part &part : message)
        part.appendTo(text, shown);
    return text;
}
} // namespace

Detail chooseDetail(const QStringList &environment, int output)
{
    const QString asked = valueOf(environment, u"TESSARY_LOG");
    if (asked == u"full"_s)
        return Detail::Full;
    if (asked == u"private"_s)
        return Detail::Private;
    return ::isatty(output) == 1 ? Detail::Full : Detail::Private;
}

Detail detailFromProcess()
{
    return chooseDetail(QProcessEnvironment::systemEnvironment().toStringList(), fileno(stdout));
}

void setDetail(Detail detail)
{
    currentDetail = detail;
}

Detail detail()
{
    return currentDetail;
}

void Part::appendTo(QString &line, Detail detail) const
{
    if (!m_fixed.isNull())
        line += m_fixed;
    else if (m_private && detail == Detail::Private)
        line += u"[%1 characters]"_s.arg(m_value.size());
    else
        line += m_value;
}

void write(Literal glyph, Literal tag, Message message)
{
    QString text;
    appendLine(text, glyph, tag, message);
    writeOut(text);
}

void write(Literal glyph, Literal tag, Part message)
{
    write(glyph, tag, { std::move(message) });
}

void write(Message line)
{
    writeOut(Log::line(line));
}

void write(Part line)
{
    write({ std::move(line) });
}

void Lines::add(Literal glyph, Literal tag, Message message)
{
    if (!m_text.isEmpty())
        m_text += u'\n';
    appendLine(m_text, glyph, tag, message);
}

void Lines::add(Literal glyph, Literal tag, Part message)
{
    add(glyph, tag, { std::move(message) });
}

void Lines::flush()
{
    if (m_text.isEmpty())
        return;
    writeOut(m_text);
    m_text.clear();
}

} // namespace Log
