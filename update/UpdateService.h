#pragma once

#include "VersionData.h"

#include <QDateTime>
#include <QJsonObject>
#include <QObject>

#include <optional>

class QNetworkAccessManager;
class QNetworkReply;
class StorageManager;

// Asks the rewrite service which release is current, publishes what it learnt for the
// tray menu and the settings window, and offers the download when the user asked.
// Lives on the main thread.
class UpdateService : public QObject
{
    Q_OBJECT

    Q_PROPERTY(bool isCheckingForUpdates READ isCheckingForUpdates NOTIFY isCheckingForUpdatesChanged)
    Q_PROPERTY(bool updateAvailable READ updateAvailable NOTIFY updateAvailableChanged)
    // The newer release, flattened for QML; empty while none is known.
    Q_PROPERTY(QString availableVersion READ availableVersion NOTIFY updateInfoChanged)
    Q_PROPERTY(QString releaseNotes READ releaseNotes NOTIFY updateInfoChanged)
    Q_PROPERTY(QString downloadUrl READ downloadUrl NOTIFY updateInfoChanged)
    Q_PROPERTY(QString runningVersion READ runningVersion CONSTANT)

public:
    // buildInfo describes the running program; its "version" member is the running
    // release (1.0.0 when absent).
    UpdateService(StorageManager &storage, const QJsonObject &buildInfo, QObject *parent = nullptr);

    bool isCheckingForUpdates() const { return m_checking; }
    bool updateAvailable() const { return m_updateAvailable; }
    const std::optional<VersionData> &updateInfo() const { return m_updateInfo; }
    QString availableVersion() const;
    QString releaseNotes() const;
    QString downloadUrl() const;
    QString runningVersion() const;

    // Whether the automatic check at launch is due: enabled, and the last check more
    // than 24 hours before `now`.
    Q_INVOKABLE bool shouldCheckForUpdates(const QDateTime &now = QDateTime::currentDateTime()) const;
    // A silent check does nothing while automatic checks are off and only updates the
    // published state; an interactive one (the user asked) always runs and tells the user.
    Q_INVOKABLE void checkForUpdates(bool silent);
    Q_INVOKABLE void openDownloadURL();

Q_SIGNALS:
    // After every check that got a usable reply, with the new state already published.
    void updateStatusChanged();
    // Outcomes of an interactive check that the alert does not cover.
    void upToDate(const QString &runningVersion);
    void checkFailed(const QString &reason);
    // An interactive check found a newer release: the alert offers Download, Later and
    // Skip This Version.
    void updateAlertRequested(const QString &informativeText);

    void isCheckingForUpdatesChanged();
    void updateAvailableChanged();
    void updateInfoChanged();

private:
    void performVersionCheck(bool silent);
    void versionReplyReceived(QNetworkReply *reply, bool silent);
    void publish(bool available, const std::optional<VersionData> &info);
    void finishCheck();
    void setChecking(bool checking);
    QString getCurrentVersion() const;
    void showNativeUpdateAlert();

    StorageManager &m_storage;
    QJsonObject m_buildInfo;
    QNetworkAccessManager *m_network = nullptr;
    bool m_checking = false; // the first of overlapping checks to end clears it
    bool m_updateAvailable = false;
    std::optional<VersionData> m_updateInfo;
};
