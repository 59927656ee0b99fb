#pragma once

#include "StoredSecret.h"

#include <QDateTime>
#include <QObject>
#include <QSettings>
#include <QStringList>
#include <QTimer>
#include <QtQml/qqmlregistration.h>

#include <functional>

class KeyStore;

// Everything that outlives a run. Loaded once when created; every assignment is kept at
// once and reaches the file shortly after (edits in quick succession are written
// together, atomically, and before the program ends), so there is no save step. Keys
// live in the desktop keyring; the file, readable by its owner only, holds them only
// where no keyring answers.
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
    // Which language model answers: the Tessary service (apiBase + apiKey), or a model
    // server spoken to directly (modelBase + modelKey + model), on this machine or not.
    Q_PROPERTY(Provider provider READ provider WRITE setProvider NOTIFY providerChanged)
    Q_PROPERTY(QString modelBase READ modelBase WRITE setModelBase NOTIFY modelBaseChanged)
    Q_PROPERTY(QString modelKey READ modelKey WRITE setModelKey NOTIFY modelKeyChanged)
    Q_PROPERTY(QString model READ model WRITE setModel NOTIFY modelChanged)
    // Whether a rewrite can be asked of the chosen service without the user's help.
    Q_PROPERTY(bool serviceUsable READ serviceUsable NOTIFY serviceUsableChanged)
    // False until the keyring has told what it holds: the keys may change then.
    Q_PROPERTY(bool keysLoaded READ keysLoaded NOTIFY keysLoadedChanged)
    // True when no keyring answers and the keys are kept in the settings file.
    Q_PROPERTY(bool keysInSettingsFile READ keysInSettingsFile NOTIFY keysInSettingsFileChanged)
    // Rewrites are kept on this machine, for historyDays days.
    Q_PROPERTY(bool historyEnabled READ historyEnabled WRITE setHistoryEnabled NOTIFY historyEnabledChanged)
    Q_PROPERTY(int historyDays READ historyDays WRITE setHistoryDays NOTIFY historyDaysChanged)
    // The popup marks what the rewrite changed.
    Q_PROPERTY(bool showChanges READ showChanges WRITE setShowChanges NOTIFY showChangesChanged)
    // Instructions the user wrote once to give again ("shorter", "in German").
    Q_PROPERTY(QStringList savedInstructions READ savedInstructions WRITE setSavedInstructions NOTIFY
            savedInstructionsChanged)
    // Each saved instruction's own shortcut, by position: a key sequence's portable text
    // ("Ctrl+Alt+J"), empty where it has none.
    Q_PROPERTY(QStringList instructionShortcuts READ instructionShortcuts WRITE setInstructionShortcuts NOTIFY
            instructionShortcutsChanged)
    // False while a key is on its way to the keyring.
    Q_PROPERTY(bool keysSaved READ keysSaved NOTIFY keysSavedChanged)

public:
    enum class Provider { TessaryService, LocalModel, ModelService };
    Q_ENUM(Provider)

    static constexpr int defaultHistoryDays = 30;
    static constexpr int maxHistoryDays = 3650;

    // A store whose keys live in the settings file.
    StorageManager(const QString &filePath, const QString &defaultApiBase, QObject *parent = nullptr);
    // A store whose keys live in `keys` where it answers. `serverTokenPath` is the client
    // token file of a tessary-server run by this user; empty: never pair.
    StorageManager(const QString &filePath, const QString &defaultApiBase, KeyStore *keys,
        const QString &serverTokenPath, QObject *parent = nullptr);
    ~StorageManager() override;

    // $XDG_CONFIG_HOME/Tessary/Tessary.conf
    static QString defaultFilePath();
    // $XDG_CONFIG_HOME/tessary-server/client-token
    static QString defaultServerTokenPath();

    QStringList examples() const { return m_examples; }
    void setExamples(const QStringList &examples);
    QString apiBase() const { return m_apiBase; }
    void setApiBase(const QString &apiBase);
    QString apiKey() const { return m_apiKey.value(); }
    void setApiKey(const QString &apiKey);
    QDateTime lastVersionCheck() const { return m_lastVersionCheck; }
    void setLastVersionCheck(const QDateTime &when);
    bool updateCheckEnabled() const { return m_updateCheckEnabled; }
    void setUpdateCheckEnabled(bool enabled);
    // Whether the user has been through the welcome window once, in this or an earlier run.
    bool onboardingFinished() const { return m_onboardingFinished; }
    void setOnboardingFinished();
    Provider provider() const { return m_provider; }
    void setProvider(Provider provider);
    QString modelBase() const { return m_modelBase; }
    void setModelBase(const QString &base);
    QString modelKey() const { return m_modelKey.value(); }
    void setModelKey(const QString &key);
    QString model() const { return m_model; }
    void setModel(const QString &model);
    bool serviceUsable() const;
    bool historyEnabled() const { return m_historyEnabled; }
    void setHistoryEnabled(bool enabled);
    int historyDays() const { return m_historyDays; }
    void setHistoryDays(int days);
    bool showChanges() const { return m_showChanges; }
    void setShowChanges(bool show);
    QStringList savedInstructions() const { return m_savedInstructions; }
    void setSavedInstructions(const QStringList &instructions);
    QStringList instructionShortcuts() const { return m_instructionShortcuts; }
    void setInstructionShortcuts(const QStringList &shortcuts);
    bool keysLoaded() const { return m_apiKey.loaded() && m_modelKey.loaded(); }
    bool keysInSettingsFile() const;
    bool keysSaved() const { return m_apiKey.saved() && m_modelKey.saved(); }
    // Runs `action` once the keys are loaded: at once if they are, else when the keyring answers.
    void whenKeysLoaded(QObject *context, std::function<void()> action);

    // What the Tessary service is sent as the bearer key: the stored key, or, when none is
    // stored and the service is on this machine, the client token of the tessary-server
    // that this user runs (only that user can read its file).
    QString credential() const;

    // Writes what is not yet on disk now.
    void flush();

Q_SIGNALS:
    void examplesChanged();
    void apiBaseChanged();
    void apiKeyChanged();
    void lastVersionCheckChanged();
    void updateCheckEnabledChanged();
    void providerChanged();
    void modelBaseChanged();
    void modelKeyChanged();
    void modelChanged();
    void serviceUsableChanged();
    void keysLoadedChanged();
    void keysInSettingsFileChanged();
    void keysSavedChanged();
    void historyEnabledChanged();
    void historyDaysChanged();
    void showChangesChanged();
    void savedInstructionsChanged();
    void instructionShortcutsChanged();

private:
    void store(const QString &key, const QVariant &value);
    bool eventFilter(QObject *watched, QEvent *event) override;
    void secretLoaded(bool valueChanged, void (StorageManager::*announce)());
    QString pairedToken() const;

    QSettings m_defaults;
    QTimer m_writeTimer;
    bool m_unsaved = false; // the file lags behind
    QString m_serverTokenPath;
    QStringList m_examples;
    QString m_apiBase;
    StoredSecret m_apiKey;
    QDateTime m_lastVersionCheck;
    bool m_updateCheckEnabled = false;
    bool m_onboardingFinished = false;
    Provider m_provider = Provider::TessaryService;
    QString m_modelBase;
    StoredSecret m_modelKey;
    QString m_model;
    bool m_historyEnabled = true;
    int m_historyDays = defaultHistoryDays;
    bool m_showChanges = false;
    QStringList m_savedInstructions;
    QStringList m_instructionShortcuts;
};
