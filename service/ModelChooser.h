#pragma once

#include "Failure.h"
#include "ModelProbe.h"

#include <QObject>
#include <QStringList>
#include <QtQml/qqmlregistration.h>

class QNetworkAccessManager;
class StorageManager;

// Choosing the language model, as Settings and onboarding offer it: the model servers
// found on this machine and their models, the models an OpenAI-compatible service
// lists, and a connection test that spends no tokens (it asks for the model list).
// Every answer is shown on one result line, which goes as soon as a field it was
// about changes.
class ModelChooser : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("ModelChooser is created by the settings and onboarding models")

    Q_PROPERTY(bool searching READ searching NOTIFY localChoicesChanged)
    // "model — server (address)", one per model of every server found.
    Q_PROPERTY(QStringList localChoices READ localChoices NOTIFY localChoicesChanged)
    // The local choice the store holds now; -1 when none of them.
    Q_PROPERTY(int chosenLocal READ chosenLocal NOTIFY chosenLocalChanged)
    Q_PROPERTY(bool listing READ listing NOTIFY serviceModelsChanged)
    Q_PROPERTY(QStringList serviceModels READ serviceModels NOTIFY serviceModelsChanged)
    Q_PROPERTY(Result resultKind READ resultKind NOTIFY resultChanged)
    Q_PROPERTY(QString result READ result NOTIFY resultChanged)
    // Commands that may fix a failed result ("ollama serve"), shown as copyable code.
    Q_PROPERTY(QStringList resultCommands READ resultCommands NOTIFY resultChanged)

public:
    enum class Result { None, Working, Succeeded, Failed };
    Q_ENUM(Result)

    ModelChooser(StorageManager &storage, QList<ModelProbe::Candidate> candidates, QObject *parent = nullptr);
    ~ModelChooser() override;

    bool searching() const { return m_probe.isRunning(); }
    QStringList localChoices() const;
    int chosenLocal() const;
    bool listing() const { return m_listing; }
    QStringList serviceModels() const { return m_serviceModels; }
    Result resultKind() const { return m_resultKind; }
    QString result() const { return m_result; }
    QStringList resultCommands() const { return m_resultCommands; }

    // Looks for model servers on this machine again.
    Q_INVOKABLE void searchLocal();
    // Makes local choice `index` the language model.
    Q_INVOKABLE void chooseLocal(int index);
    // Asks the OpenAI-compatible service at modelBase for its models.
    Q_INVOKABLE void listServiceModels();
    // Checks the chosen service: reachable, key accepted, model there; says how long it took.
    Q_INVOKABLE void testConnection();

Q_SIGNALS:
    void localChoicesChanged();
    void chosenLocalChanged();
    void serviceModelsChanged();
    void resultChanged();

private:
    struct LocalChoice
    {
        QString base;
        QString model;
        QString label;
    };

    void probeFinished();
    void setResult(Result kind, const QString &text);
    // Shown inside Settings and onboarding, where the fields it names are at hand.
    void setFailure(const Failure &failure);
    void clearResult();

    StorageManager &m_storage;
    QNetworkAccessManager *m_network;
    ModelProbe m_probe;
    QList<LocalChoice> m_local;
    bool m_listing = false;
    QStringList m_serviceModels;
    Result m_resultKind = Result::None;
    QString m_result;
    QStringList m_resultCommands;
    int m_round = 0; // answers of an earlier round are not shown
};
