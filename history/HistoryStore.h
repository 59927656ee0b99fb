#pragma once

#include "HistoryEntry.h"

#include <QDateTime>
#include <QObject>
#include <QPointer>
#include <QThread>
#include <QTimer>

class HistoryDatabase;

// The rewrites kept on this machine. Every call returns at once: the file is read and
// written on the history's own thread, and answers come back as signals. Nothing of
// it is logged or sent anywhere. A damaged or locked file is reported through
// failure(); the program goes on without a history meanwhile.
class HistoryStore : public QObject
{
    Q_OBJECT

public:
    static constexpr int defaultRetentionDays = 30;
    static constexpr int searchLimit = 500; // matches a list shows; newest first

    explicit HistoryStore(const QString &filePath, QObject *parent = nullptr);
    ~HistoryStore() override;

    // $XDG_DATA_HOME/Tessary/history.sqlite
    static QString defaultFilePath();

    // Switched off, nothing is kept and what was kept is deleted.
    bool isEnabled() const { return m_enabled; }
    void setEnabled(bool enabled);
    int retentionDays() const { return m_retentionDays; }
    // Removes what is older at once, and again every day.
    void setRetentionDays(int days);

    void add(const HistoryEntry &entry);
    // A rewrite that ended just now.
    void record(const QString &original, const QString &result, const QString &instruction,
        const QString &application);
    // Entries whose original or result contain `text` (all for an empty one), newest
    // first; answered by found() with the returned serial.
    quint64 search(const QString &text);
    void remove(qint64 id);
    void clear();
    // Removes what is older than the retention period before `now`.
    void removeExpired(const QDateTime &now = QDateTime::currentDateTimeUtc());

    HistoryFailure failure() const { return m_failure; }

Q_SIGNALS:
    void added(const HistoryEntry &entry);
    // Entries went (one, all, or expired ones): a shown list is out of date.
    void removed();
    void found(quint64 serial, const QList<HistoryEntry> &entries);
    void failureChanged();

private:
    template<typename Call> void post(Call call);

    QThread m_thread;
    QPointer<HistoryDatabase> m_database; // lives on m_thread
    QTimer m_dailyCleanup;
    bool m_enabled = true;
    int m_retentionDays = defaultRetentionDays;
    quint64 m_lastSerial = 0;
    HistoryFailure m_failure;
};
