#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QHash>
#include <QList>
#include <QString>

// The tokens file: one line per person, "NAME CREATED sha256:HEX". Only hashes are kept,
// so a copy of the file lets nobody in.
class TokenStore
{
public:
    struct Entry
    {
        QString name;
        QDateTime created; // UTC
        QByteArray hash; // SHA-256 of the token, hex
    };

    explicit TokenStore(QString path);

    QString path() const { return m_path; }

    // Reads the file; a missing file holds no tokens. On an unreadable line, error() says
    // which, and the entries read before it are kept.
    bool load();
    QString error() const { return m_error; }
    const QList<Entry> &entries() const { return m_entries; }

    // The name a token belongs to, or an empty string.
    QString nameOf(QByteArrayView token) const;

    // A new random token for `name`, stored as its hash; empty with error() on failure,
    // also when the name is taken or not a valid name.
    QString add(const QString &name);
    bool revoke(const QString &name);

    static bool validName(const QString &name);
    static QByteArray hashOf(QByteArrayView token);

private:
    bool save();

    QString m_path;
    QString m_error;
    QList<Entry> m_entries;
    QHash<QByteArray, QString> m_byHash;
};
