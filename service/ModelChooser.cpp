#include "ModelChooser.h"

#include "FailureAdvice.h"
#include "StorageManager.h"

#include <QNetworkAccessManager>

using namespace Qt::StringLiterals;
using namespace std::chrono_literals;

namespace {

using Provider = StorageManager::Provider;

// A service far away may be slow to list its models; one on this machine is not.
constexpr auto serviceDeadline = 10s;
constexpr auto localDeadline = 1500ms;

} // namespace

ModelChooser::ModelChooser(StorageManager &storage, QList<ModelProbe::Candidate> candidates, QObject *parent)
    : QObject(parent)
    , m_storage(storage)
    , m_network(new QNetworkAccessManager(this))
    , m_probe(std::move(candidates), localDeadline)
{
    connect(&m_probe, &ModelProbe::finished, this, &ModelChooser::probeFinished);
    // A result is about the fields as they were: any change makes it stale.
    for (auto changed : { &StorageManager::apiBaseChanged, &StorageManager::apiKeyChanged,
             &StorageManager::providerChanged, &StorageManager::modelBaseChanged,
             &StorageManager::modelKeyChanged, &StorageManager::modelChanged })
        connect(&m_storage, changed, this, &ModelChooser::clearResult);
    for (auto changed : { &StorageManager::providerChanged, &StorageManager::modelBaseChanged,
             &StorageManager::modelChanged })
        connect(&m_storage, changed, this, &ModelChooser::chosenLocalChanged);
}

ModelChooser::~ModelChooser() = default;

QStringList ModelChooser::localChoices() const
{
    QStringList labels;
    for (const LocalChoice &choice : m_local)
        labels.append(choice.label);
    return labels;
}

int ModelChooser::chosenLocal() const
{
    if (m_storage.provider() != Provider::LocalModel)
        return -1;
    for (qsizetype i = 0; i < m_local.size(); ++i) {
        if (m_local.at(i).base == m_storage.modelBase() && m_local.at(i).model == m_storage.model())
            return int(i);
    }
    return -1;
}

void ModelChooser::searchLocal()
{
    m_probe.start();
    Q_EMIT localChoicesChanged();
}

void ModelChooser::probeFinished()
{
    m_local.clear();
    for (const ModelList &server : m_probe.found()) {
        const QString name = server.serverName.isEmpty() ? u"model server"_s : server.serverName;
        for (const QString &model : server.models)
            m_local.append({ server.base.toString(), model,
                u"%1 — %2 (%3)"_s.arg(model, name, FailureAdvice::where(server.base)) });
    }
    Q_EMIT localChoicesChanged();
    Q_EMIT chosenLocalChanged();
}

void ModelChooser::chooseLocal(int index)
{
    if (index < 0 || index >= m_local.size())
        return;
    const LocalChoice choice = m_local.at(index);
    m_storage.setModelBase(choice.base);
    m_storage.setModel(choice.model);
    m_storage.setModelKey({});
    m_storage.setProvider(Provider::LocalModel);
}

void ModelChooser::listServiceModels()
{
    const int round = ++m_round;
    m_listing = true;
    Q_EMIT serviceModelsChanged();
    setResult(Result::Working, u"Asking for the models…"_s);
    const FailureAdvice::Context context { Provider::ModelService, QUrl(m_storage.modelBase().trimmed()),
        m_storage.model() };
    listModels(*m_network, context.base, m_storage.modelKey(), serviceDeadline, this,
        [this, round, context](const ModelList &list) {
            if (round != m_round)
                return;
            m_listing = false;
            m_serviceModels = list.models;
            Q_EMIT serviceModelsChanged();
            if (!list.listed()) {
                setFailure(FailureAdvice::forModelList(context, list).value_or(Failure {}));
                return;
            }
            // The first model is a fine start; the user picks another from the list.
            if (m_storage.model().isEmpty() && !list.models.isEmpty())
                m_storage.setModel(list.models.first());
            const qsizetype count = list.models.size();
            setResult(Result::Succeeded,
                u"%1 lists %2 %3."_s.arg(FailureAdvice::where(context.base))
                    .arg(count)
                    .arg(count == 1 ? u"model"_s : u"models"_s));
        });
}

void ModelChooser::testConnection()
{
    const int round = ++m_round;
    setResult(Result::Working, u"Testing…"_s);
    const FailureAdvice::Context context = FailureAdvice::contextOf(m_storage);
    if (context.provider != Provider::TessaryService && (context.base.isEmpty() || context.model.isEmpty())) {
        setFailure(FailureAdvice::noModelChosen());
        return;
    }
    const QString key
        = context.provider == Provider::TessaryService ? m_storage.credential() : m_storage.modelKey();
    listModels(
        *m_network, context.base, key, serviceDeadline, this, [this, round, context](const ModelList &list) {
            if (round != m_round)
                return;
            const std::optional<Failure> problem = FailureAdvice::forModelList(context, list);
            // A Tessary service need not list models: that it answers is what can be known
            // without spending a rewrite.
            if (context.provider == Provider::TessaryService
                && list.outcome == ModelList::Outcome::NotFound) {
                setResult(Result::Succeeded,
                    u"The Tessary service at %1 answers (%2 ms). It checks the key with the first rewrite."_s
                        .arg(FailureAdvice::where(context.base))
                        .arg(list.latencyMs));
                return;
            }
            if (problem) {
                setFailure(*problem);
                return;
            }
            const QString service = context.provider == Provider::TessaryService ? u"the Tessary service"_s
                : list.serverName.isEmpty() ? FailureAdvice::where(context.base)
                                            : list.serverName;
            const QString model = context.model.isEmpty() ? list.models.value(0) : context.model;
            const QString at = service == FailureAdvice::where(context.base)
                ? QString()
                : u" at "_s + FailureAdvice::where(context.base);
            setResult(Result::Succeeded,
                model.isEmpty()
                    ? u"Connected to %1%2 (%3 ms)."_s.arg(service, at).arg(list.latencyMs)
                    : u"Connected to %1%2 — model %3 (%4 ms)."_s.arg(service, at, model).arg(list.latencyMs));
        });
}

void ModelChooser::setResult(Result kind, const QString &text)
{
    m_resultKind = kind;
    m_result = text;
    m_resultCommands.clear();
    Q_EMIT resultChanged();
}

void ModelChooser::setFailure(const Failure &failure)
{
    m_resultKind = Result::Failed;
    m_result = failure.messageInSettings();
    m_resultCommands = failure.commands;
    Q_EMIT resultChanged();
}

void ModelChooser::clearResult()
{
    if (m_resultKind == Result::None)
        return;
    ++m_round;
    m_listing = false;
    setResult(Result::None, {});
}
