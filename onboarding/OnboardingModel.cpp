#include "OnboardingModel.h"

#include <QTimer>

#include <algorithm>

using namespace Qt::StringLiterals;

OnboardingModel::OnboardingModel(StorageManager &storage, std::chrono::milliseconds completionDelay,
    DesktopShortcut *desktopShortcut, QObject *parent)
    : OnboardingModel(
        storage, completionDelay, ModelProbe::candidatesFromEnvironment(), desktopShortcut, parent)
{
}

OnboardingModel::OnboardingModel(StorageManager &storage, std::chrono::milliseconds completionDelay,
    QList<ModelProbe::Candidate> localServers, DesktopShortcut *desktopShortcut, QObject *parent)
    : QObject(parent)
    , m_storage(storage)
    , m_completionDelay(completionDelay)
    , m_chooser(storage, std::move(localServers))
    , m_shortcutSetup(desktopShortcut)
{
    // Once the shortcut is set up, the page closes as it does where nothing was to be done.
    connect(&m_shortcutSetup, &ShortcutSetup::shortcutAdded, this,
        [this] { QTimer::singleShot(m_completionDelay, this, &OnboardingModel::completed); });
    // The first model found is a fine start; the user may pick another.
    connect(&m_chooser, &ModelChooser::localChoicesChanged, this, [this] {
        if (m_step == Step::ChooseModel && !m_chooser.searching() && m_chooser.chosenLocal() < 0)
            m_chooser.chooseLocal(0);
    });
    connect(&m_storage, &StorageManager::serviceUsableChanged, this, &OnboardingModel::serviceUsableChanged);
    connect(&m_storage, &StorageManager::examplesChanged, this, &OnboardingModel::storedSamplesChanged);
}

void OnboardingModel::setSampleText(const QString &text)
{
    if (text == m_sampleText)
        return;
    m_sampleText = text;
    Q_EMIT sampleTextChanged();
}

QString OnboardingModel::stepCounter() const
{
    const int shown = std::min(int(m_step), countedSteps() - 1) + 1;
    return u"%1 of %2"_s.arg(shown).arg(countedSteps());
}

bool OnboardingModel::isBlank(const QString &text)
{
    return std::all_of(text.cbegin(), text.cend(),
        [](QChar c) { return c == u'\t' || c.category() == QChar::Separator_Space; });
}

void OnboardingModel::advance()
{
    switch (m_step) {
    case Step::Welcome:
        setStep(Step::AddSample);
        break;
    case Step::AddSample:
        if (serviceUsable()) {
            finish();
            return;
        }
        m_choiceBefore = serviceChoice();
        setStep(Step::ChooseModel);
        m_chooser.searchLocal();
        break;
    case Step::ChooseModel:
        finish();
        break;
    case Step::Done:
        break;
    }
}

void OnboardingModel::finish()
{
    if (m_step == Step::Done)
        return;
    if (!isBlank(m_sampleText))
        m_storage.setExamples(m_storage.examples() << m_sampleText);
    m_storage.setOnboardingFinished();
    setStep(Step::Done);
    // The page stays while it offers to set up Ctrl+Alt+H: the user needs the time to read it.
    if (!m_shortcutSetup.offered())
        QTimer::singleShot(m_completionDelay, this, &OnboardingModel::completed);
}

void OnboardingModel::setUpLater()
{
    restoreChoiceBefore();
    finish();
}

void OnboardingModel::dismiss()
{
    restoreChoiceBefore();
}

void OnboardingModel::restoreChoiceBefore()
{
    if (m_step == Step::ChooseModel && m_choiceBefore && serviceChoice() != *m_choiceBefore) {
        m_storage.setModelBase(m_choiceBefore->base);
        m_storage.setModel(m_choiceBefore->model);
        m_storage.setModelKey(m_choiceBefore->key);
        m_storage.setProvider(m_choiceBefore->provider);
    }
}

OnboardingModel::ServiceChoice OnboardingModel::serviceChoice() const
{
    return { m_storage.provider(), m_storage.modelBase(), m_storage.model(), m_storage.modelKey() };
}

void OnboardingModel::setStep(Step step)
{
    if (step == m_step)
        return;
    m_step = step;
    Q_EMIT currentStepChanged();
}
