#pragma once

#include "HistoryEntry.h"

#include <QAbstractListModel>
#include <QtQml/qqmlregistration.h>

class HistoryStore;

// The History window's list: the store's entries that match the search, newest first,
// and what the user can do with one. Every change asks the store again; an answer to an
// older question is dropped.
class HistoryListModel : public QAbstractListModel
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("The history's list is made by the application")

    Q_PROPERTY(QString searchText READ searchText WRITE setSearchText NOTIFY searchTextChanged)
    // Why the history cannot be read or written now; empty while it works.
    Q_PROPERTY(QString failureMessage READ failureMessage NOTIFY failureChanged)
    Q_PROPERTY(bool empty READ isEmpty NOTIFY countChanged)
    // The answer to the latest search has arrived.
    Q_PROPERTY(bool loaded READ isLoaded NOTIFY loadedChanged)

public:
    enum Role { OriginalRole = Qt::UserRole + 1, ResultRole, InstructionRole, ApplicationRole, TimeRole };

    explicit HistoryListModel(HistoryStore &store, QObject *parent = nullptr);

    int rowCount(const QModelIndex &parent = {}) const override;
    QVariant data(const QModelIndex &index, int role) const override;
    QHash<int, QByteArray> roleNames() const override;

    QString searchText() const { return m_searchText; }
    void setSearchText(const QString &text);
    QString failureMessage() const;
    bool isEmpty() const { return m_entries.isEmpty(); }
    bool isLoaded() const { return m_waitingFor == 0; }
    const QList<HistoryEntry> &entries() const { return m_entries; }

    Q_INVOKABLE void copyOriginal(int row) const;
    Q_INVOKABLE void copyResult(int row) const;
    Q_INVOKABLE void rewriteAgain(int row);
    Q_INVOKABLE void remove(int row);
    Q_INVOKABLE void removeAll();
    // Asks the store again, for the list's current search.
    Q_INVOKABLE void refresh();

Q_SIGNALS:
    void searchTextChanged();
    void failureChanged();
    void countChanged();
    void loadedChanged();
    // "Rewrite again": the application starts a rewrite of this text.
    void rewriteRequested(const QString &original, const QString &instruction);

private:
    void takeAnswer(quint64 serial, const QList<HistoryEntry> &entries);
    void copy(int row, QString HistoryEntry::*side) const;

    HistoryStore &m_store;
    QString m_searchText;
    QList<HistoryEntry> m_entries;
    quint64 m_waitingFor = 0;
};
