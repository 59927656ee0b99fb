#include "StoredSecret.h"

#include "KeyStore.h"

#include <QLoggingCategory>

#include <utility>

Q_LOGGING_CATEGORY(lcSecret, "tessary.storage.secret")

StoredSecret::StoredSecret(const QString &name, const std::optional<QString> &fileValue, KeyStore *keys,
    FileWriter writeFile, QObject *parent)
    : QObject(parent)
    , m_name(name)
    , m_keys(keys)
    , m_writeFile(std::move(writeFile))
    , m_value(fileValue.value_or(QString()))
    , m_inFile(fileValue.has_value())
{
    if (!m_keys) {
        m_place = Place::File;
        return;
    }
    m_keys->read(m_name, this, [this](KeyStore::Answer answer, const QString &value) {
        answered(answer != KeyStore::Answer::NoKeyring, value);
    });
}

void StoredSecret::answered(bool keyring, const QString &keyringValue)
{
    const QString before = m_value;
    if (!keyring) {
        qCInfo(lcSecret) << "no keyring answers; keeping" << m_name << "in the settings file";
        m_place = Place::File;
        if (m_assigned)
            writeFile(m_value);
    } else {
        m_place = Place::Keyring;
        if (m_assigned) {
            writeToKeyring(m_value);
        } else if (m_inFile) {
            // Written by a start that had no keyring, so newer than what the keyring holds.
            qCInfo(lcSecret) << "moving" << m_name << "from the settings file into the keyring";
            writeToKeyring(m_value);
        } else {
            m_value = keyringValue;
        }
    }
    Q_EMIT loadedChanged(m_value != before);
    if (m_place == Place::File)
        Q_EMIT inSettingsFileChanged();
}

void StoredSecret::assign(const QString &value)
{
    m_value = value;
    switch (m_place) {
    case Place::Unknown:
        m_assigned = true; // stored where the keyring's answer says
        break;
    case Place::File:
        writeFile(m_value);
        break;
    case Place::Keyring:
        writeToKeyring(m_value);
        break;
    }
}

void StoredSecret::writeToKeyring(const QString &value)
{
    setUnconfirmed(true);
    if (m_writing) {
        // Typing sends a value per keystroke: only the latest one still needs writing.
        m_next = value;
        return;
    }
    m_writing = true;
    m_keys->write(m_name, value, this, [this](bool stored) { written(stored); });
}

void StoredSecret::written(bool stored)
{
    m_writing = false;
    if (!stored) {
        fallBackToFile();
        return;
    }
    if (m_next) {
        const QString next = *std::exchange(m_next, std::nullopt);
        writeToKeyring(next);
        return;
    }
    if (m_inFile)
        writeFile(QVariant());
    setUnconfirmed(false);
}

void StoredSecret::fallBackToFile()
{
    qCWarning(lcSecret) << "the keyring stopped answering; keeping" << m_name << "in the settings file";
    m_next.reset();
    m_place = Place::File;
    writeFile(m_value);
    Q_EMIT inSettingsFileChanged();
    setUnconfirmed(false);
}

void StoredSecret::setUnconfirmed(bool unconfirmed)
{
    if (std::exchange(m_unconfirmed, unconfirmed) != unconfirmed)
        Q_EMIT savedChanged();
}

bool StoredSecret::saved() const
{
    return !m_unconfirmed && !(m_place == Place::Unknown && m_assigned);
}

void StoredSecret::keepUnconfirmedInFile()
{
    if (!saved())
        writeFile(m_value); // an empty one too: the key was cleared
}

void StoredSecret::writeFile(const QVariant &value)
{
    m_inFile = value.isValid();
    m_writeFile(value);
}
