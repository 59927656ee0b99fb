#pragma once

#include <QDateTime>
#include <QObject>
#include <QSettings>
#include <QStringList>
#include <QtQml/qqmlregistration.h>

// Everything that outlives a run. Loaded once when created, written back at once on
// every assignment; there is no save step. The file holds the API key, so it is
// readable by its owner only.
class StorageManager : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("StorageManager is created by the application")

    Q_PROPERTY(QStringList examples READ examples WRITE setExamples NOTIFY examplesChanged)
    Q_PROPERTY(QString apiBase READ apiBase WRITE setApiBase NOTIFY apiBaseChanged)
    Q_PROPERTY(QString apiKey READ apiKey WRITE setApiKey NOTIFY apiKeyChanged)
    // An invalid date-time means "never checked".
    Q_PROPERTY(QDateTime lastVersionCheck READ lastVersionCheck WRITE setLastVersionCheck NOTIFY
            lastVersionCheckChanged)
    Q_PROPERTY(bool updateCheckEnabled READ updateCheckEnabled WRITE setUpdateCheckEnabled NOTIFY
            updateCheckEnabledChanged)
    // The release the user chose to skip; the automatic check does not announce it.
    Q_PROPERTY(QString skippedUpdateVersion READ skippedUpdateVersion WRITE setSkippedUpdateVersion NOTIFY
            skippedUpdateVersionChanged)

public:
    StorageManager(const QString &filePath, const QString &defaultApiBase, QObject *parent = nullptr);

    // $XDG_CONFIG_HOME/Tessary/Tessary.conf
    static QString defaultFilePath();

    QStringList examples() const { return m_examples; }
    void setExamples(const QStringList &examples);
    QString apiBase() const { return m_apiBase; }
    void setApiBase(const QString &apiBase);
    QString apiKey() const { return m_apiKey; }
    void setApiKey(const QString &apiKey);
    QDateTime lastVersionCheck() const { return m_lastVersionCheck; }
    void setLastVersionCheck(const QDateTime &when);
    bool updateCheckEnabled() const { return m_updateCheckEnabled; }
    void setUpdateCheckEnabled(bool enabled);
    QString skippedUpdateVersion() const { return m_skippedUpdateVersion; }
    void setSkippedUpdateVersion(const QString &version);

Q_SIGNALS:
    void examplesChanged();
    void apiBaseChanged();
    void apiKeyChanged();
    void lastVersionCheckChanged();
    void updateCheckEnabledChanged();
    void skippedUpdateVersionChanged();

private:
    void store(const QString &key, const QVariant &value);

    QSettings m_defaults;
    QStringList m_examples;
    QString m_apiBase;
    QString m_apiKey;
    QDateTime m_lastVersionCheck;
    bool m_updateCheckEnabled = false;
    QString m_skippedUpdateVersion;
};
