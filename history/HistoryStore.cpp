#include "HistoryStore.h"

#include "HistoryDatabase.h"

#include <QStandardPaths>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

HistoryStore::HistoryStore(const QString &filePath, QObject *parent)
    : QObject(parent)
{
    qRegisterMetaType<HistoryEntry>();
    qRegisterMetaType<HistoryFailure>();
    auto *database = new HistoryDatabase(filePath);
    database->moveToThread(&m_thread);
    connect(&m_thread, &QThread::finished, database, &QObject::deleteLater);
    connect(database, &HistoryDatabase::added, this, &HistoryStore::added);
    connect(database, &HistoryDatabase::removed, this, &HistoryStore::removed);
    connect(database, &HistoryDatabase::found, this, &HistoryStore::found);
    connect(database, &HistoryDatabase::failureChanged, this, [this](const HistoryFailure &failure) {
        m_failure = failure;
        Q_EMIT failureChanged();
    });
    m_database = database;
    m_thread.setObjectName(u"history"_s);
    m_thread.start(QThread::LowPriority);

    m_dailyCleanup.setInterval(24h);
    connect(&m_dailyCleanup, &QTimer::timeout, this, [this] { removeExpired(); });
    m_dailyCleanup.start();
    removeExpired();
}

HistoryStore::~HistoryStore()
{
    // The database closes its connection on its own thread as that thread ends.
    m_thread.quit();
    m_thread.wait();
}

QString HistoryStore::defaultFilePath()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation)
        + u"/Tessary/history.sqlite"_s;
}

template<typename Call> void HistoryStore::post(Call call)
{
    QMetaObject::invokeMethod(m_database, [database = m_database.data(), call] { call(*database); });
}

void HistoryStore::setEnabled(bool enabled)
{
    if (m_enabled == enabled)
        return;
    m_enabled = enabled;
    if (!enabled)
        clear();
}

void HistoryStore::setRetentionDays(int days)
{
    m_retentionDays = std::max(1, days);
    removeExpired();
}

void HistoryStore::add(const HistoryEntry &entry)
{
    if (!m_enabled)
        return;
    post([entry](HistoryDatabase &database) { database.add(entry); });
}

void HistoryStore::record(
    const QString &original, const QString &result, const QString &instruction, const QString &application)
{
    add({ 0, original, result, instruction, application, QDateTime::currentDateTimeUtc() });
}

quint64 HistoryStore::search(const QString &text)
{
    const quint64 serial = ++m_lastSerial;
    post([serial, text](HistoryDatabase &database) { database.search(serial, text, searchLimit); });
    return serial;
}

void HistoryStore::remove(qint64 id)
{
    post([id](HistoryDatabase &database) { database.remove(id); });
}

void HistoryStore::clear()
{
    post([](HistoryDatabase &database) { database.clear(); });
}

void HistoryStore::removeExpired(const QDateTime &now)
{
    const QDateTime cutoff = now.addDays(-m_retentionDays);
    post([cutoff](HistoryDatabase &database) { database.removeOlderThan(cutoff); });
}
