#include "StorageManager.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QLoggingCategory>
#include <QStandardPaths>

Q_LOGGING_CATEGORY(lcStorage, "tessary.storage")

using namespace Qt::StringLiterals;

namespace {

const auto examplesKey = u"humanize_examples"_s;
const auto apiBaseKey = u"api_base"_s;
const auto apiKeyKey = u"api_key"_s;
const auto lastVersionCheckKey = u"last_version_check"_s;
const auto updateCheckEnabledKey = u"update_check_enabled"_s;
const auto skippedUpdateVersionKey = u"skipped_update_version"_s;

// The INI format keeps no types for plain values: a one-element list reads back as a
// string, an empty one as an invalid variant, a bool as "true"/"false". These readers
// accept exactly what a write of the right type produces and nothing else.

QStringList readStringList(const QSettings &settings, const QString &key)
{
    const QVariant value = settings.value(key);
    switch (value.typeId()) {
    case QMetaType::QStringList:
        return value.toStringList();
    case QMetaType::QString:
        return { value.toString() };
    case QMetaType::QVariantList: { // some element was not a string
        QStringList list;
        for (const QVariant &element : value.toList()) {
            if (element.typeId() != QMetaType::QString)
                return {};
            list.append(element.toString());
        }
        return list;
    }
    default:
        return {};
    }
}

QString readString(const QSettings &settings, const QString &key)
{
    const QVariant value = settings.value(key);
    return value.typeId() == QMetaType::QString ? value.toString() : QString();
}

bool readBool(const QSettings &settings, const QString &key)
{
    const QVariant value = settings.value(key);
    if (value.typeId() == QMetaType::Bool)
        return value.toBool();
    return value.typeId() == QMetaType::QString && value.toString() == u"true"_s;
}

QDateTime readDateTime(const QSettings &settings, const QString &key)
{
    const QVariant value = settings.value(key);
    return value.typeId() == QMetaType::QDateTime ? value.toDateTime() : QDateTime();
}

// Created private before QSettings first writes it; QSettings replaces the file
// atomically and keeps the mode of the one it replaces.
void createPrivateFile(const QString &filePath)
{
    if (QFileInfo::exists(filePath))
        return;
    QDir().mkpath(QFileInfo(filePath).absolutePath());
    QFile file(filePath);
    if (!file.open(QIODevice::WriteOnly, QFileDevice::ReadOwner | QFileDevice::WriteOwner))
        qCWarning(lcStorage) << "cannot create settings file" << filePath << file.errorString();
}

} // namespace

StorageManager::StorageManager(const QString &filePath, const QString &defaultApiBase, QObject *parent)
    : QObject(parent)
    , m_defaults((createPrivateFile(filePath), filePath), QSettings::IniFormat)
    , m_examples(readStringList(m_defaults, examplesKey))
    , m_apiBase(defaultApiBase) // a stored api_base is deliberately not read
    , m_apiKey(readString(m_defaults, apiKeyKey))
    , m_lastVersionCheck(readDateTime(m_defaults, lastVersionCheckKey))
    , m_updateCheckEnabled(readBool(m_defaults, updateCheckEnabledKey))
    , m_skippedUpdateVersion(readString(m_defaults, skippedUpdateVersionKey))
{
    if (m_defaults.status() != QSettings::NoError)
        qCWarning(lcStorage) << "settings file" << filePath << "could not be read; using defaults";

    // Version checks are on until the user turns them off; a stored false stays.
    if (!m_updateCheckEnabled && !m_defaults.contains(updateCheckEnabledKey))
        setUpdateCheckEnabled(true);
}

QString StorageManager::defaultFilePath()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation)
        + u"/Tessary/Tessary.conf"_s;
}

void StorageManager::store(const QString &key, const QVariant &value)
{
    if (value.isValid())
        m_defaults.setValue(key, value);
    else
        m_defaults.remove(key);
    m_defaults.sync();
    if (m_defaults.status() == QSettings::AccessError)
        qCWarning(lcStorage) << "cannot write" << key << "to" << m_defaults.fileName();
}

void StorageManager::setExamples(const QStringList &examples)
{
    m_examples = examples;
    store(examplesKey, m_examples);
    Q_EMIT examplesChanged();
}

void StorageManager::setApiBase(const QString &apiBase)
{
    m_apiBase = apiBase;
    store(apiBaseKey, m_apiBase);
    Q_EMIT apiBaseChanged();
}

void StorageManager::setApiKey(const QString &apiKey)
{
    m_apiKey = apiKey;
    store(apiKeyKey, m_apiKey);
    Q_EMIT apiKeyChanged();
}

void StorageManager::setLastVersionCheck(const QDateTime &when)
{
    m_lastVersionCheck = when;
    store(lastVersionCheckKey, when.isValid() ? QVariant(when) : QVariant());
    Q_EMIT lastVersionCheckChanged();
}

void StorageManager::setUpdateCheckEnabled(bool enabled)
{
    m_updateCheckEnabled = enabled;
    store(updateCheckEnabledKey, enabled);
    Q_EMIT updateCheckEnabledChanged();
}

void StorageManager::setSkippedUpdateVersion(const QString &version)
{
    m_skippedUpdateVersion = version;
    store(skippedUpdateVersionKey, m_skippedUpdateVersion);
    Q_EMIT skippedUpdateVersionChanged();
}
