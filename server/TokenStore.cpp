#include "TokenStore.h"

#include <QCryptographicHash>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>
#include <QRegularExpression>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

using namespace Qt::StringLiterals;

TokenStore::TokenStore(QString path)
    : m_path(std::move(path))
{
}

bool TokenStore::validName(const QString &name)
{
    // Names end up as metric labels and log words: nothing that needs escaping there.
    static const QRegularExpression pattern(u"^[A-Za-z0-9][A-Za-z0-9._@-]{0,63}$"_s);
    return pattern.match(name).hasMatch();
}

QByteArray TokenStore::hashOf(QByteArrayView token)
{
    return QCryptographicHash::hash(token, QCryptographicHash::Sha256).toHex();
}

bool TokenStore::load()
{
    m_error.clear();
    m_entries.clear();
    m_byHash.clear();
    QFile file(m_path);
    if (!file.exists())
        return true;
    if (!file.open(QIODevice::ReadOnly)) {
        m_error = u"cannot read %1: %2"_s.arg(m_path, file.errorString());
        return false;
    }
    int number = 0;
    while (!file.atEnd()) {
        ++number;
        const QByteArray line = file.readLine().trimmed();
        if (line.isEmpty() || line.startsWith('#'))
            continue;
        const QList<QByteArray> parts = line.simplified().split(' ');
        Entry entry;
        if (parts.size() == 3) {
            entry.name = QString::fromUtf8(parts[0]);
            entry.created = QDateTime::fromString(QString::fromLatin1(parts[1]), Qt::ISODate);
            entry.hash = parts[2].startsWith("sha256:") ? parts[2].sliced(7).toLower() : QByteArray();
        }
        if (!validName(entry.name) || !entry.created.isValid() || entry.hash.size() != 64) {
            m_error = u"%1:%2: expected NAME CREATED sha256:HASH"_s.arg(m_path).arg(number);
            return false;
        }
        m_byHash.insert(entry.hash, entry.name);
        m_entries.append(entry);
    }
    return true;
}

QString TokenStore::nameOf(QByteArrayView token) const
{
    if (token.isEmpty())
        return {};
    return m_byHash.value(hashOf(token));
}

QString TokenStore::add(const QString &name)
{
    if (!validName(name)) {
        m_error = u"\"%1\" is not a token name: use letters, digits, '.', '_', '-' or '@' (at most 64)"_s.arg(
            name);
        return {};
    }
    for (const Entry &entry : std::as_const(m_entries)) {
        if (entry.name == name) {
            m_error = u"%1 already has a token: revoke it first"_s.arg(name);
            return {};
        }
    }
    QByteArray bytes(32, Qt::Uninitialized);
    QRandomGenerator::system()->generate(bytes.begin(), bytes.end());
    const QByteArray token = bytes.toBase64(QByteArray::Base64UrlEncoding | QByteArray::OmitTrailingEquals);
    const Entry entry { name, QDateTime::currentDateTimeUtc(), hashOf(token) };
    m_entries.append(entry);
    m_byHash.insert(entry.hash, entry.name);
    if (!save())
        return {};
    return QString::fromLatin1(token);
}

bool TokenStore::revoke(const QString &name)
{
    for (qsizetype i = 0; i < m_entries.size(); ++i) {
        if (m_entries[i].name == name) {
            m_byHash.remove(m_entries[i].hash);
            m_entries.removeAt(i);
            return save();
        }
    }
    m_error = u"%1 has no token"_s.arg(name);
    return false;
}

bool TokenStore::save()
{
    QByteArray text
        = "# tessary-server tokens: NAME CREATED sha256:HASH (edit with `tessary-server token`)\n";
    for (const Entry &entry : std::as_const(m_entries))
        text += entry.name.toUtf8() + ' ' + entry.created.toString(Qt::ISODate).toLatin1()
            + " sha256:" + entry.hash + '\n';

    const QString directory = QFileInfo(m_path).absolutePath();
    QDir().mkpath(directory);
    const QString next = m_path + u".new"_s;
    QFile::remove(next);
    QFile file(next);
    // Owner-only from the start; replaced whole, so a running server never reads half a file.
    if (!file.open(
            QIODevice::WriteOnly | QIODevice::NewOnly, QFileDevice::ReadOwner | QFileDevice::WriteOwner)
        || file.write(text) < 0 || !file.flush()) {
        m_error = u"cannot write %1: %2"_s.arg(m_path, file.errorString());
        file.remove();
        return false;
    }
    // Root editing a service's state directory: the file stays the service user's.
    struct stat owner = {};
    if (::geteuid() == 0 && ::stat(QFile::encodeName(directory).constData(), &owner) == 0 && owner.st_uid != 0
        && ::fchown(file.handle(), owner.st_uid, owner.st_gid) != 0) {
        m_error = u"cannot give %1 to the owner of %2: %3"_s.arg(
            m_path, directory, QString::fromLocal8Bit(std::strerror(errno)));
        file.remove();
        return false;
    }
    file.close();
    if (std::rename(QFile::encodeName(next).constData(), QFile::encodeName(m_path).constData()) != 0) {
        m_error = u"cannot write %1: %2"_s.arg(m_path, QString::fromLocal8Bit(std::strerror(errno)));
        QFile::remove(next);
        return false;
    }
    return true;
}
