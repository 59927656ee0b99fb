#pragma once

#include "AccessibilitySwitch.h"
#include "ModelChooser.h"
#include "ShortcutSetup.h"
#include "StorageManager.h"

#include <QObject>
#include <QString>
#include <QUrl>
#include <QtQml/qqmlregistration.h>

#include <functional>
#include <memory>
#include <optional>

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
    Q_PROPERTY(ModelChooser *chooser READ chooser CONSTANT)
    Q_PROPERTY(bool startAtLogin READ startAtLogin WRITE setStartAtLogin NOTIFY startAtLoginChanged)
    Q_PROPERTY(ShortcutSetup *shortcutSetup READ shortcutSetup CONSTANT)
    Q_PROPERTY(AccessibilitySwitch *accessibility READ accessibility CONSTANT)
    Q_PROPERTY(QString version READ version CONSTANT)

public:
    static constexpr int maxAddableSamples = 5;

    struct Release
    {
        QString version;
        QString notes;
        QString downloadUrl;
    };

    using UrlOpener = std::function<bool(const QUrl &)>;

    // autostartDir and openUrl default to the desktop's; tests pass their own.
    // desktopShortcut: where the desktop runs Ctrl+Alt+H for Tessary, null elsewhere.
    explicit SettingsModel(
        StorageManager &storage, DesktopShortcut *desktopShortcut = nullptr, QObject *parent = nullptr);
    SettingsModel(StorageManager &storage, const QString &autostartDir, UrlOpener openUrl,
        QList<ModelProbe::Candidate> localServers, DesktopShortcut *desktopShortcut = nullptr,
        QObject *parent = nullptr);

    StorageManager *storage() const { return &m_storage; }
    ModelChooser *chooser() { return &m_chooser; }
    ShortcutSetup *shortcutSetup() { return &m_shortcutSetup; }
    AccessibilitySwitch *accessibility() { return &m_accessibility; }
    // The running release, as the application names it.
    static QString version();
    bool canAddSample() const;
    QString lastCheckedText() const;

    bool checkingForUpdates() const { return m_checking; }
    bool showsUpdate() const { return m_updateAvailable && m_release.has_value(); }
    QString updateTitle() const;
    QString releaseNotes() const;
    void setUpdateState(bool checking, bool updateAvailable, const std::optional<Release> &release);

    bool startAtLogin() const;
    void setStartAtLogin(bool enabled);
    QString autostartFilePath() const;

    Q_INVOKABLE void setExample(int index, const QString &text);
    Q_INVOKABLE void removeExample(int index);
    Q_INVOKABLE void addExample();
    Q_INVOKABLE void checkForUpdates() { Q_EMIT updateCheckRequested(); }
    Q_INVOKABLE void download();
    Q_INVOKABLE void showHistory() { Q_EMIT historyRequested(); }
    // The saved instructions, edited by position like the samples.
    Q_INVOKABLE void setInstruction(int index, const QString &text);
    Q_INVOKABLE void removeInstruction(int index);
    Q_INVOKABLE void addInstruction();
    // A key press from the shortcut recorder (a Qt key and its modifiers) becomes the
    // instruction's own shortcut; key 0 clears it. A press without Ctrl, Alt or Super, or
    // of a modifier alone, is no shortcut and changes nothing: false.
    Q_INVOKABLE bool setInstructionShortcut(int index, int key, int modifiers);
    // What the desktop is to run for the instruction, where it binds the keys itself.
    Q_INVOKABLE QString instructionCommand(int index) const;

Q_SIGNALS:
    void samplesChanged();
    void lastCheckedTextChanged();
    void updateStateChanged();
    void startAtLoginChanged();
    void updateCheckRequested();
    void historyRequested();

private:
    StorageManager &m_storage;
    QString m_autostartDir;
    UrlOpener m_openUrl;

    bool m_checking = false;
    bool m_updateAvailable = false;
    std::optional<Release> m_release;

    ModelChooser m_chooser;
    ShortcutSetup m_shortcutSetup;
    AccessibilitySwitch m_accessibility;
};
