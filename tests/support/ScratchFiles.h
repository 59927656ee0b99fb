#pragma once

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTemporaryDir>

// Files a test writes and reads back, in a directory that goes with it.
class ScratchFiles
{
public:
    // A new path each time, in a folder not made yet: QSettings caches files by name within
    // a process, and a store reopened under a new name can only have read what is on disk.
    QString newPath(const QString &name = QStringLiteral("Tessary.conf"))
    {
        return m_dir.filePath(QStringLiteral("%1/%2").arg(++m_count).arg(name));
    }

    // A new file holding `contents`.
    QString write(const QByteArray &contents, const QString &name = QStringLiteral("Tessary.conf"))
    {
        const QString path = newPath(name);
        QDir().mkpath(QFileInfo(path).absolutePath());
        QFile file(path);
        if (!file.open(QIODevice::WriteOnly) || file.write(contents) != contents.size())
            qFatal("cannot write a test file");
        return path;
    }

    static QByteArray read(const QString &path)
    {
        QFile file(path);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }

    // Nobody but its owner may read, write or run it.
    static bool privateToOwner(const QString &path)
    {
        return QFile::exists(path)
            && !(QFile::permissions(path)
                & (QFileDevice::ReadGroup | QFileDevice::WriteGroup | QFileDevice::ExeGroup
                    | QFileDevice::ReadOther | QFileDevice::WriteOther | QFileDevice::ExeOther));
    }

private:
    QTemporaryDir m_dir;
    int m_count = 0;
};
