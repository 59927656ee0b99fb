#pragma once

#include "ModelChooser.h"
#include "ShortcutSetup.h"
#include "StorageManager.h"

#include <QObject>
#include <QString>
#include <QtQml/qqmlregistration.h>

#include <chrono>
#include <optional>

// The state of the first-run flow: which page shows, the sample being typed, the
// language model picked, and what finishing stores. The flow only goes forward;
// completed() tells the controller, a moment after the last page has appeared, that
// the window may close. Samples stored before are kept: a new one is added to them.
class OnboardingModel : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("OnboardingModel is created by the application")

    Q_PROPERTY(Step currentStep READ currentStep NOTIFY currentStepChanged)
    Q_PROPERTY(QString sampleText READ sampleText WRITE setSampleText NOTIFY sampleTextChanged)
    Q_PROPERTY(bool canFinish READ canFinish NOTIFY sampleTextChanged)
    Q_PROPERTY(QStringList storedSamples READ storedSamples NOTIFY storedSamplesChanged)
    Q_PROPERTY(int countedSteps READ countedSteps CONSTANT)
    Q_PROPERTY(QString stepCounter READ stepCounter NOTIFY currentStepChanged)
    // Whether the chosen language model can be used; the last page says so when not.
    Q_PROPERTY(bool serviceUsable READ serviceUsable NOTIFY serviceUsableChanged)
    Q_PROPERTY(ModelChooser *chooser READ chooser CONSTANT)
    Q_PROPERTY(ShortcutSetup *shortcutSetup READ shortcutSetup CONSTANT)
    // Whether the desktop shows Tessary's tray icon; where not, the first page says how
    // Settings open. Set before the window is made.
    Q_PROPERTY(bool trayShown READ trayShown CONSTANT)

public:
    enum class Step { Welcome = 0, AddSample = 1, ChooseModel = 2, Done = 3 };
    Q_ENUM(Step)

    // How long the closing page shows before completed(), unless the caller says otherwise.
    static constexpr std::chrono::milliseconds defaultCompletionDelay { 1600 };

    // Looks for model servers where TESSARY_LOCAL_MODEL_PORTS says, or on the known ports.
    // desktopShortcut: where the desktop runs Ctrl+Alt+H for Tessary, null elsewhere.
    explicit OnboardingModel(StorageManager &storage,
        std::chrono::milliseconds completionDelay = defaultCompletionDelay,
        DesktopShortcut *desktopShortcut = nullptr, QObject *parent = nullptr);
    OnboardingModel(StorageManager &storage, std::chrono::milliseconds completionDelay,
        QList<ModelProbe::Candidate> localServers, DesktopShortcut *desktopShortcut = nullptr,
        QObject *parent = nullptr);

    Step currentStep() const { return m_step; }
    QString sampleText() const { return m_sampleText; }
    void setSampleText(const QString &text);
    bool canFinish() const { return !isBlank(m_sampleText); }
    QStringList storedSamples() const { return m_storage.examples(); }
    // Every step but the closing one.
    int countedSteps() const { return int(Step::Done); }
    QString stepCounter() const;
    bool serviceUsable() const { return m_storage.serviceUsable(); }
    ModelChooser *chooser() { return &m_chooser; }
    ShortcutSetup *shortcutSetup() { return &m_shortcutSetup; }
    bool trayShown() const { return m_trayShown; }
    void setTrayShown(bool shown) { m_trayShown = shown; }

    // Blanks are spaces of any width and tabs; a text of line breaks is not blank.
    static bool isBlank(const QString &text);

    // To the next page; from the sample page, to the choice of a language model, or
    // straight to the end when the chosen one is usable already.
    Q_INVOKABLE void advance();
    // Adds a non-blank sample to those stored, shows the closing page and schedules
    // completed(). A second press while the closing page shows is ignored. Where Ctrl+Alt+H
    // still has to be set up, the page waits for that, or for leave().
    Q_INVOKABLE void finish();
    // Finishes with the language model as it was before the model page: the page's own
    // pick is not kept when the user says "later".
    Q_INVOKABLE void setUpLater();
    // The window was closed before the flow ended: nothing is stored, so the model page's
    // pick is undone as by "later", the sample is not added, and completed() does not
    // follow. The flow stays where it was, should the window show again.
    Q_INVOKABLE void dismiss();
    // Closes the closing page at once.
    Q_INVOKABLE void leave() { Q_EMIT completed(); }

Q_SIGNALS:
    void currentStepChanged();
    void sampleTextChanged();
    void storedSamplesChanged();
    void serviceUsableChanged();
    void completed();

private:
    // What picking a model on the model page changes in the store.
    struct ServiceChoice
    {
        StorageManager::Provider provider;
        QString base;
        QString model;
        QString key;
        bool operator==(const ServiceChoice &) const = default;
    };

    void setStep(Step step);
    ServiceChoice serviceChoice() const;
    void restoreChoiceBefore();

    StorageManager &m_storage;
    std::chrono::milliseconds m_completionDelay;
    ModelChooser m_chooser;
    ShortcutSetup m_shortcutSetup;
    Step m_step = Step::Welcome;
    bool m_trayShown = true;
    QString m_sampleText;
    std::optional<ServiceChoice> m_choiceBefore; // as the model page found it
};
