#pragma once

#include "StorageManager.h"

#include <QObject>
#include <QString>
#include <QUrl>
#include <QtQml/qqmlregistration.h>

#include <functional>
#include <memory>
#include <optional>

class Rewriter;
class RewriteRequest;

// What the settings window needs beyond plain bindings to the store: sample editing
// by position, the update section's derived state, the connection test and the
// login autostart entry. The update state is pushed in by the controller, so this
// library does not depend on the update service.
class SettingsModel : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("SettingsModel is created by the application")

    Q_PROPERTY(StorageManager *storage READ storage CONSTANT)
    Q_PROPERTY(bool canAddSample READ canAddSample NOTIFY samplesChanged)
    Q_PROPERTY(QString lastCheckedText READ lastCheckedText NOTIFY lastCheckedTextChanged)
    Q_PROPERTY(bool checkingForUpdates READ checkingForUpdates NOTIFY updateStateChanged)
    Q_PROPERTY(bool showsUpdate READ showsUpdate NOTIFY updateStateChanged)
    Q_PROPERTY(QString updateTitle READ updateTitle NOTIFY updateStateChanged)
    Q_PROPERTY(QString releaseNotes READ releaseNotes NOTIFY updateStateChanged)
    Q_PROPERTY(ConnectionState connectionState READ connectionState NOTIFY connectionChanged)
    Q_PROPERTY(QString connectionMessage READ connectionMessage NOTIFY connectionChanged)
    Q_PROPERTY(bool startAtLogin READ startAtLogin WRITE setStartAtLogin NOTIFY startAtLoginChanged)

public:
    static constexpr int maxAddableSamples = 5;

    enum class ConnectionState { Idle, Testing, Succeeded, Failed };
    Q_ENUM(ConnectionState)

    struct Release
    {
        QString version;
        QString notes;
        QString downloadUrl;
    };

    using UrlOpener = std::function<bool(const QUrl &)>;

    // autostartDir and openUrl default to the desktop's; tests pass their own.
    SettingsModel(StorageManager &storage, Rewriter &rewriter, QObject *parent = nullptr);
    SettingsModel(StorageManager &storage, Rewriter &rewriter, const QString &autostartDir, UrlOpener openUrl,
        QObject *parent = nullptr);

    StorageManager *storage() const { return &m_storage; }
    bool canAddSample() const;
    QString lastCheckedText() const;

    bool checkingForUpdates() const { return m_checking; }
    bool showsUpdate() const { return m_updateAvailable && m_release.has_value(); }
    QString updateTitle() const;
    QString releaseNotes() const;
    void setUpdateState(bool checking, bool updateAvailable, const std::optional<Release> &release);

    ConnectionState connectionState() const { return m_connectionState; }
    QString connectionMessage() const { return m_connectionMessage; }

    bool startAtLogin() const;
    void setStartAtLogin(bool enabled);
    QString autostartFilePath() const;

    Q_INVOKABLE void setExample(int index, const QString &text);
    Q_INVOKABLE void removeExample(int index);
    Q_INVOKABLE void addExample();
    Q_INVOKABLE void checkForUpdates() { Q_EMIT updateCheckRequested(); }
    Q_INVOKABLE void download();
    Q_INVOKABLE void testConnection();

Q_SIGNALS:
    void samplesChanged();
    void lastCheckedTextChanged();
    void updateStateChanged();
    void connectionChanged();
    void startAtLoginChanged();
    void updateCheckRequested();

private:
    void setConnection(ConnectionState state, const QString &message);

    StorageManager &m_storage;
    Rewriter &m_rewriter;
    QString m_autostartDir;
    UrlOpener m_openUrl;

    bool m_checking = false;
    bool m_updateAvailable = false;
    std::optional<Release> m_release;

    ConnectionState m_connectionState = ConnectionState::Idle;
    QString m_connectionMessage;
    int m_connectionAttempt = 0;
    std::shared_ptr<RewriteRequest> m_connectionRequest;
};
