#pragma once

#include "StorageManager.h"

#include <QObject>
#include <QString>
#include <QtQml/qqmlregistration.h>

#include <chrono>

// The state of the first-run flow: which page shows, the sample being typed, and what
// finishing stores. The flow only goes forward; completed() tells the controller, a
// moment after the last page has appeared, that the window may close.
class OnboardingModel : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("OnboardingModel is created by the application")

    Q_PROPERTY(Step currentStep READ currentStep NOTIFY currentStepChanged)
    Q_PROPERTY(QString sampleText READ sampleText WRITE setSampleText NOTIFY sampleTextChanged)
    Q_PROPERTY(bool canFinish READ canFinish NOTIFY sampleTextChanged)
    Q_PROPERTY(int countedSteps READ countedSteps CONSTANT)
    Q_PROPERTY(QString stepCounter READ stepCounter NOTIFY currentStepChanged)
    Q_PROPERTY(bool needsApiKey READ needsApiKey NOTIFY needsApiKeyChanged)

public:
    enum class Step { Welcome = 0, AddSample = 1, Done = 2 };
    Q_ENUM(Step)

    // How long the closing page shows before completed(), unless the caller says otherwise.
    static constexpr std::chrono::milliseconds defaultCompletionDelay { 1600 };

    explicit OnboardingModel(StorageManager &storage,
        std::chrono::milliseconds completionDelay = defaultCompletionDelay, QObject *parent = nullptr);

    Step currentStep() const { return m_step; }
    QString sampleText() const { return m_sampleText; }
    void setSampleText(const QString &text);
    bool canFinish() const { return !isBlank(m_sampleText); }
    // Every step but the closing one.
    int countedSteps() const { return int(Step::Done); }
    QString stepCounter() const;
    bool needsApiKey() const { return m_storage.apiKey().isEmpty(); }

    // Blanks are spaces of any width and tabs; a text of line breaks is not blank.
    static bool isBlank(const QString &text);

    Q_INVOKABLE void advance();
    // Stores a non-blank sample as the only one, shows the closing page and schedules
    // completed(). A second press while the closing page shows is ignored.
    Q_INVOKABLE void finish();

Q_SIGNALS:
    void currentStepChanged();
    void sampleTextChanged();
    void needsApiKeyChanged();
    void completed();

private:
    void setStep(Step step);

    StorageManager &m_storage;
    std::chrono::milliseconds m_completionDelay;
    Step m_step = Step::Welcome;
    QString m_sampleText;
};
