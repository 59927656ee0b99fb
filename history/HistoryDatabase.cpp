#include "HistoryDatabase.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSqlDatabase>
#include <QSqlError>
#include <QSqlQuery>

using namespace Qt::StringLiterals;

namespace {
// SQLite's primary result codes (the low byte of the extended code the driver reports).
constexpr int sqliteBusy = 5;
constexpr int sqliteLocked = 6;
constexpr int sqliteCorrupt = 11;
constexpr int sqliteNotADatabase = 26;

constexpr QFile::Permissions ownerOnly = QFile::ReadOwner | QFile::WriteOwner;

HistoryFailure failureFor(const QSqlError &error)
{
    bool numeric = false;
    const int code = error.nativeErrorCode().toInt(&numeric) & 0xff;
    if (numeric && (code == sqliteBusy || code == sqliteLocked))
        return { HistoryFailure::Kind::Locked,
            QObject::tr("Another program is using the history file, so this rewrite was not kept. "
                        "Close that program and try again.") };
    if (numeric && (code == sqliteCorrupt || code == sqliteNotADatabase))
        return { HistoryFailure::Kind::Damaged,
            QObject::tr("The history file is damaged, so rewrites are not kept. "
                        "Delete all to start it afresh.") };
    return { HistoryFailure::Kind::Unavailable,
        QObject::tr("The history file cannot be opened or written, so rewrites are not kept. "
                    "Check that your data folder has room and belongs to you.") };
}

HistoryEntry entryFrom(const QSqlQuery &query)
{
    return { query.value(0).toLongLong(), query.value(1).toString(), query.value(2).toString(),
        query.value(3).toString(), query.value(4).toString(),
        QDateTime::fromMSecsSinceEpoch(query.value(5).toLongLong(), Qt::UTC) };
}

// LIKE's wildcards typed by the user are matched as themselves.
QString likePattern(const QString &text)
{
    QString escaped = text;
    escaped.replace(u"\\"_s, u"\\\\"_s).replace(u"%"_s, u"\\%"_s).replace(u"_"_s, u"\\_"_s);
    return u"%"_s + escaped + u"%"_s;
}
} // namespace

HistoryDatabase::HistoryDatabase(const QString &filePath, QObject *parent)
    : QObject(parent)
    , m_filePath(filePath)
    , m_connection(u"tessary-history-%1"_s.arg(quintptr(this)))
{
}

HistoryDatabase::~HistoryDatabase()
{
    close();
}

bool HistoryDatabase::open()
{
    if (m_open)
        return true;
    close(); // what is left of a connection that failed
    m_open = openConnection();
    if (!m_open)
        close();
    return m_open;
}

bool HistoryDatabase::openConnection()
{
    const QFileInfo info(m_filePath);
    QDir().mkpath(info.absolutePath());
    // Created by us, owner-only, before SQLite sees it; its journals take the same mode.
    QFile file(m_filePath);
    if (!file.exists() && file.open(QIODevice::WriteOnly))
        file.close();
    file.setPermissions(ownerOnly);

    QSqlDatabase db = QSqlDatabase::addDatabase(u"QSQLITE"_s, m_connection);
    db.setDatabaseName(m_filePath);
    db.setConnectOptions(u"QSQLITE_BUSY_TIMEOUT=%1"_s.arg(lockWaitMs));
    const bool opened = db.open();
    if (!check(opened, db.lastError()))
        return false;
    QSqlQuery query(db);
    // Commits without a wait for the disk each time; what is deleted is overwritten, not
    // left in the file's free pages.
    for (const QString &statement :
        {
            u"PRAGMA journal_mode = WAL"_s,
            u"PRAGMA synchronous = NORMAL"_s,
            u"PRAGMA secure_delete = ON"_s,
            u"CREATE TABLE IF NOT EXISTS entries (id INTEGER PRIMARY KEY, original TEXT NOT NULL, "
            "result TEXT NOT NULL, instruction TEXT NOT NULL, application TEXT NOT NULL, time INTEGER NOT NULL)"_s,
            u"CREATE INDEX IF NOT EXISTS entries_time ON entries (time)"_s,
        }) {
        if (!run(query, query.prepare(statement)))
            return false;
    }
    return true;
}

void HistoryDatabase::close()
{
    m_open = false;
    if (QSqlDatabase::contains(m_connection)) {
        QSqlDatabase::database(m_connection, false).close();
        QSqlDatabase::removeDatabase(m_connection);
    }
}

bool HistoryDatabase::run(QSqlQuery &query, bool prepared)
{
    const bool ok = prepared && query.exec(); // before lastError() is read
    return check(ok, query.lastError());
}

bool HistoryDatabase::check(bool ok, const QSqlError &error)
{
    if (ok) {
        setFailure({});
        return true;
    }
    const HistoryFailure failure = failureFor(error);
    // A damaged file stays closed until it is cleared; a lock may go at the next try.
    if (failure.kind == HistoryFailure::Kind::Damaged)
        m_open = false;
    setFailure(failure);
    return false;
}

void HistoryDatabase::setFailure(const HistoryFailure &failure)
{
    if (failure.kind == m_failure)
        return;
    m_failure = failure.kind;
    Q_EMIT failureChanged(failure);
}

void HistoryDatabase::add(const HistoryEntry &entry)
{
    if (!open())
        return;
    QSqlQuery query(QSqlDatabase::database(m_connection));
    const bool prepared
        = query.prepare(u"INSERT INTO entries (original, result, instruction, application, time) "
                        "VALUES (?, ?, ?, ?, ?)"_s);
    // A null string would be stored as NULL.
    for (const QString *text : { &entry.original, &entry.result, &entry.instruction, &entry.application })
        query.addBindValue(text->isNull() ? u""_s : *text);
    query.addBindValue(entry.time.toMSecsSinceEpoch());
    if (!run(query, prepared))
        return;
    HistoryEntry stored = entry;
    stored.id = query.lastInsertId().toLongLong();
    Q_EMIT added(stored);
}

void HistoryDatabase::search(quint64 serial, const QString &text, int limit)
{
    if (!open()) {
        Q_EMIT found(serial, {});
        return;
    }
    QSqlQuery query(QSqlDatabase::database(m_connection));
    query.setForwardOnly(true);
    const QString columns = u"SELECT id, original, result, instruction, application, time FROM entries "_s;
    const QString order = u" ORDER BY time DESC, id DESC LIMIT ?"_s;
    bool prepared = false;
    if (text.isEmpty()) {
        prepared = query.prepare(columns + order);
    } else {
        prepared = query.prepare(
            columns + u"WHERE original LIKE ? ESCAPE '\\' OR result LIKE ? ESCAPE '\\'"_s + order);
        query.addBindValue(likePattern(text));
        query.addBindValue(likePattern(text));
    }
    query.addBindValue(limit);
    QList<HistoryEntry> entries;
    if (run(query, prepared)) {
        while (query.next())
            entries.append(entryFrom(query));
    }
    Q_EMIT found(serial, entries);
}

void HistoryDatabase::remove(qint64 id)
{
    if (!open())
        return;
    QSqlQuery query(QSqlDatabase::database(m_connection));
    const bool prepared = query.prepare(u"DELETE FROM entries WHERE id = ?"_s);
    query.addBindValue(id);
    if (run(query, prepared))
        removedAll();
}

void HistoryDatabase::clear()
{
    if (m_failure == HistoryFailure::Kind::Damaged || !open()) {
        if (m_failure != HistoryFailure::Kind::Damaged)
            return;
        // Nothing in a damaged file can be saved: start a new one.
        close();
        for (const QString &suffix : { u""_s, u"-journal"_s, u"-wal"_s, u"-shm"_s })
            QFile::remove(m_filePath + suffix);
        if (open())
            Q_EMIT removed();
        return;
    }
    QSqlQuery query(QSqlDatabase::database(m_connection));
    if (run(query, query.prepare(u"DELETE FROM entries"_s)))
        removedAll();
}

void HistoryDatabase::removeOlderThan(const QDateTime &cutoff)
{
    if (!open())
        return;
    QSqlQuery query(QSqlDatabase::database(m_connection));
    const bool prepared = query.prepare(u"DELETE FROM entries WHERE time < ?"_s);
    query.addBindValue(cutoff.toMSecsSinceEpoch());
    if (run(query, prepared) && query.numRowsAffected() > 0)
        removedAll();
}

void HistoryDatabase::removedAll()
{
    // Nothing deleted stays behind in the write-ahead log either.
    QSqlQuery(QSqlDatabase::database(m_connection)).exec(u"PRAGMA wal_checkpoint(TRUNCATE)"_s);
    Q_EMIT removed();
}
