#include "ApplicationName.h"

#include <QDir>
#include <QFile>
#include <QStandardPaths>

using namespace Qt::StringLiterals;

namespace {

// The keys Name may take, best first: the language with its country, the language, none.
QStringList nameKeys(const QString &locale)
{
    const QString language = locale.section(u'_', 0, 0);
    QStringList keys;
    if (locale.contains(u'_'))
        keys.append(u"Name[%1]"_s.arg(locale));
    if (!language.isEmpty() && language != u"C"_s)
        keys.append(u"Name[%1]"_s.arg(language));
    keys.append(u"Name"_s);
    return keys;
}

// Only the keys we need, from the [Desktop Entry] group (actions have their own Name).
DesktopEntry readEntry(const QString &path, const QStringList &nameKeys)
{
    QFile file(path);
    DesktopEntry entry;
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return entry;
    bool inMainGroup = false;
    qsizetype nameRank = nameKeys.size();
    while (!file.atEnd()) {
        const QString line = QString::fromUtf8(file.readLine()).trimmed();
        if (line.startsWith(u'[')) {
            inMainGroup = line == u"[Desktop Entry]";
            continue;
        }
        const qsizetype equals = line.indexOf(u'=');
        if (!inMainGroup || equals < 0)
            continue;
        const QString key = line.left(equals).trimmed();
        const QString value = line.mid(equals + 1).trimmed();
        if (key == u"StartupWMClass"_s) {
            entry.startupWmClass = value;
        } else if (const qsizetype rank = nameKeys.indexOf(key); rank >= 0 && rank < nameRank) {
            entry.name = value;
            nameRank = rank;
        }
    }
    return entry;
}

QString nameFromEntries(const WindowClass &windowClass, const QList<DesktopEntry> &entries)
{
    const QString instance = windowClass.instance.toLower();
    const QString className = windowClass.className.toLower();
    QString byFileName;
    for (const DesktopEntry &entry : entries) {
        const QString wmClass = entry.startupWmClass.toLower();
        if (!wmClass.isEmpty() && (wmClass == className || wmClass == instance))
            return entry.name;
        // "mousepad" is installed as org.xfce.mousepad.desktop
        const QString &base = entry.fileBase;
        const bool sameName = base == instance || base == className || base.endsWith(u'.' + instance)
            || base.endsWith(u'.' + className);
        if (sameName && byFileName.isEmpty())
            byFileName = entry.name;
    }
    return byFileName;
}

} // namespace

QList<DesktopEntry> readDesktopEntries(const QStringList &applicationDirs, const QString &locale)
{
    const QStringList keys = nameKeys(locale);
    QList<DesktopEntry> entries;
    for (const QString &dir : applicationDirs) {
        // Filtered by hand: a name filter would bring in the regular expression engine
        // and its compiler, which then stay resident for the rest of the session.
        const QStringList files = QDir(dir).entryList(QDir::Files, QDir::Name);
        for (const QString &file : files) {
            if (!file.endsWith(u".desktop"_s))
                continue;
            DesktopEntry entry = readEntry(dir + u'/' + file, keys);
            if (entry.name.isEmpty())
                continue;
            entry.fileBase = file.chopped(8).toLower();
            entries.append(entry);
        }
    }
    return entries;
}

QString applicationName(const std::optional<WindowClass> &windowClass, qint64 pid,
    const QStringList &applicationDirs, const QString &locale)
{
    return applicationName(windowClass, pid, readDesktopEntries(applicationDirs, locale));
}

QString applicationName(
    const std::optional<WindowClass> &windowClass, qint64 pid, const QList<DesktopEntry> &entries)
{
    if (windowClass) {
        const QString name = nameFromEntries(*windowClass, entries);
        if (!name.isEmpty())
            return name;
        if (!windowClass->className.isEmpty())
            return windowClass->className;
    }
    if (pid > 0) {
        QFile comm(u"/proc/%1/comm"_s.arg(pid));
        if (comm.open(QIODevice::ReadOnly))
            return QString::fromLocal8Bit(comm.readAll()).trimmed();
    }
    return {};
}

QStringList applicationDirs()
{
    QStringList dirs;
    for (const QString &data : QStandardPaths::standardLocations(QStandardPaths::GenericDataLocation))
        dirs.append(data + u"/applications"_s);
    return dirs;
}
