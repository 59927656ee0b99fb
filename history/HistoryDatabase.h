#pragma once

#include "HistoryEntry.h"

#include <QObject>
#include <QString>

// The history's SQLite file, spoken to on the history's own thread: every call here may
// wait for the disk or for another program's lock. Made and destroyed on that thread,
// which owns its connection; it answers with signals, queued to whoever listens.
class HistoryDatabase : public QObject
{
    Q_OBJECT

public:
    // How long a write waits for another program's lock before it gives up.
    static constexpr int lockWaitMs = 250;

    explicit HistoryDatabase(const QString &filePath, QObject *parent = nullptr);
    ~HistoryDatabase() override;

    void add(const HistoryEntry &entry);
    void search(quint64 serial, const QString &text, int limit);
    void remove(qint64 id);
    // Everything goes; a damaged file is deleted and started afresh.
    void clear();
    void removeOlderThan(const QDateTime &cutoff);

Q_SIGNALS:
    void added(const HistoryEntry &entry);
    void removed();
    void found(quint64 serial, const QList<HistoryEntry> &entries);
    // A failure, or HistoryFailure{} once the file works again.
    void failureChanged(const HistoryFailure &failure);

private:
    bool open();
    bool openConnection();
    void close();
    // Runs a prepared query; false, with the failure reported, when it could not.
    bool run(class QSqlQuery &query, bool prepared);
    bool check(bool ok, const class QSqlError &error);
    void setFailure(const HistoryFailure &failure);
    void removedAll();

    QString m_filePath;
    QString m_connection;
    bool m_open = false;
    HistoryFailure::Kind m_failure = HistoryFailure::Kind::None;
};
