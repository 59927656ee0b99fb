#include "KeyStore.h"

#include <QLoggingCategory>
#include <QTimer>
#include <qt6keychain/keychain.h>

#include <memory>
#include <utility>

Q_LOGGING_CATEGORY(lcKeyStore, "tessary.keystore")

namespace {

// Jobs have no parent and delete themselves when they finish: the keyring library calls
// back into a job it started, so one must never be deleted while under way.
//
// Calls `answer` once: with the job's outcome, or with `late` when the deadline passes
// first. A job that answers after its deadline is ignored.
void watch(QKeychain::Job *job, std::chrono::milliseconds deadline, QObject *context,
    std::function<void(QKeychain::Job *)> answer, std::function<void()> late)
{
    auto done = std::make_shared<bool>(false);
    QObject::connect(job, &QKeychain::Job::finished, context, [done, answer](QKeychain::Job *finished) {
        if (std::exchange(*done, true))
            return;
        answer(finished);
    });
    QTimer::singleShot(deadline, context, [done, late, name = job->key()] {
        if (std::exchange(*done, true))
            return;
        qCWarning(lcKeyStore) << "the keyring did not answer in time for" << name;
        late();
    });
    job->start();
}

} // namespace

KeyStore::KeyStore(const QString &service, std::chrono::milliseconds deadline, QObject *parent)
    : QObject(parent)
    , m_service(service)
    , m_deadline(deadline)
{
}

void KeyStore::read(const QString &name, QObject *context, ReadDone done)
{
    auto *job = new QKeychain::ReadPasswordJob(m_service);
    job->setKey(name);
    watch(
        job, m_deadline, context,
        [done](QKeychain::Job *finished) {
            auto *read = static_cast<QKeychain::ReadPasswordJob *>(finished);
            switch (read->error()) {
            case QKeychain::NoError:
                done(Answer::Found, read->textData());
                return;
            case QKeychain::EntryNotFound:
                done(Answer::Missing, QString());
                return;
            default:
                // The message comes from the keyring and names no secret.
                qCInfo(lcKeyStore) << "no keyring:" << read->errorString();
                done(Answer::NoKeyring, QString());
                return;
            }
        },
        [done] { done(Answer::NoKeyring, QString()); });
}

void KeyStore::write(const QString &name, const QString &value, QObject *context, WriteDone done)
{
    QKeychain::Job *job = nullptr;
    if (value.isEmpty()) {
        job = new QKeychain::DeletePasswordJob(m_service);
    } else {
        auto *writeJob = new QKeychain::WritePasswordJob(m_service);
        writeJob->setTextData(value);
        job = writeJob;
    }
    job->setKey(name);
    const bool removing = value.isEmpty();
    watch(
        job, m_deadline, context,
        [done, removing](QKeychain::Job *finished) {
            const QKeychain::Error error = finished->error();
            const bool stored
                = error == QKeychain::NoError || (removing && error == QKeychain::EntryNotFound);
            if (!stored)
                qCInfo(lcKeyStore) << "the keyring refused a change:" << finished->errorString();
            done(stored);
        },
        [done] { done(false); });
}
