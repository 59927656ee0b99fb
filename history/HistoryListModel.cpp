#include "HistoryListModel.h"

#include "HistoryStore.h"

#include <QClipboard>
#include <QGuiApplication>
#include <QLocale>

HistoryListModel::HistoryListModel(HistoryStore &store, QObject *parent)
    : QAbstractListModel(parent)
    , m_store(store)
{
    connect(&m_store, &HistoryStore::found, this, &HistoryListModel::takeAnswer);
    connect(&m_store, &HistoryStore::added, this, &HistoryListModel::refresh);
    connect(&m_store, &HistoryStore::removed, this, &HistoryListModel::refresh);
    connect(&m_store, &HistoryStore::failureChanged, this, &HistoryListModel::failureChanged);
    refresh();
}

int HistoryListModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(m_entries.size());
}

QVariant HistoryListModel::data(const QModelIndex &index, int role) const
{
    if (!checkIndex(index, CheckIndexOption::IndexIsValid | CheckIndexOption::ParentIsInvalid))
        return {};
    const HistoryEntry &entry = m_entries.at(index.row());
    switch (role) {
    case OriginalRole:
        return entry.original;
    case ResultRole:
        return entry.result;
    case InstructionRole:
        return entry.instruction;
    case ApplicationRole:
        return entry.application;
    case TimeRole:
        return QLocale().toString(entry.time.toLocalTime(), QLocale::ShortFormat);
    default:
        return {};
    }
}

QHash<int, QByteArray> HistoryListModel::roleNames() const
{
    return { { OriginalRole, "original" }, { ResultRole, "result" }, { InstructionRole, "instruction" },
        { ApplicationRole, "application" }, { TimeRole, "time" } };
}

void HistoryListModel::setSearchText(const QString &text)
{
    if (m_searchText == text)
        return;
    m_searchText = text;
    Q_EMIT searchTextChanged();
    refresh();
}

QString HistoryListModel::failureMessage() const
{
    return m_store.failure().message;
}

void HistoryListModel::refresh()
{
    const bool wasLoaded = isLoaded();
    m_waitingFor = m_store.search(m_searchText);
    if (wasLoaded)
        Q_EMIT loadedChanged();
}

void HistoryListModel::takeAnswer(quint64 serial, const QList<HistoryEntry> &entries)
{
    if (serial != m_waitingFor)
        return;
    const bool wasEmpty = isEmpty();
    beginResetModel();
    m_entries = entries;
    endResetModel();
    m_waitingFor = 0;
    if (wasEmpty != isEmpty())
        Q_EMIT countChanged();
    Q_EMIT loadedChanged();
}

void HistoryListModel::copy(int row, QString HistoryEntry::*side) const
{
    if (row < 0 || row >= m_entries.size())
        return;
    if (QClipboard *clipboard = QGuiApplication::clipboard())
        clipboard->setText(m_entries.at(row).*side);
}

void HistoryListModel::copyOriginal(int row) const
{
    copy(row, &HistoryEntry::original);
}

void HistoryListModel::copyResult(int row) const
{
    copy(row, &HistoryEntry::result);
}

void HistoryListModel::rewriteAgain(int row)
{
    if (row >= 0 && row < m_entries.size())
        Q_EMIT rewriteRequested(m_entries.at(row).original, m_entries.at(row).instruction);
}

void HistoryListModel::remove(int row)
{
    if (row >= 0 && row < m_entries.size())
        m_store.remove(m_entries.at(row).id);
}

void HistoryListModel::removeAll()
{
    m_store.clear();
}
