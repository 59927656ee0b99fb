#include "StorageManager.h"

#include <QCoreApplication>
#include <QDir>
#include <QEvent>
#include <QFile>
#include <QFileInfo>
#include <QHostAddress>
#include <QLoggingCategory>
#include <QStandardPaths>
#include <QUrl>

#include <algorithm>
#include <optional>
#include <unistd.h>
#include <utility>

Q_LOGGING_CATEGORY(lcStorage, "tessary.storage")

using namespace Qt::StringLiterals;

namespace {

const auto examplesKey = u"humanize_examples"_s;
const auto apiBaseKey = u"api_base"_s;
const auto apiKeyKey = u"api_key"_s;
const auto lastVersionCheckKey = u"last_version_check"_s;
const auto updateCheckEnabledKey = u"update_check_enabled"_s;
const auto onboardingFinishedKey = u"onboarding_finished"_s;
const auto providerKey = u"provider"_s;
const auto modelBaseKey = u"model_base"_s;
const auto modelKeyKey = u"model_key"_s;
const auto modelNameKey = u"model"_s;
const auto historyEnabledKey = u"history_enabled"_s;
const auto historyDaysKey = u"history_days"_s;
const auto showChangesKey = u"show_changes"_s;
const auto savedInstructionsKey = u"saved_instructions"_s;
const auto instructionShortcutsKey = u"instruction_shortcuts"_s;

// As stored: words, so the file reads plainly and a value from a newer release that we
// do not know falls back to the default service.
const QStringList providerNames { u"tessary"_s, u"local"_s, u"openai"_s };

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

// A key, telling an entry that holds the empty string (a cleared key) from none.
std::optional<QString> readKey(const QSettings &settings, const QString &key)
{
    return settings.contains(key) ? std::optional(readString(settings, key)) : std::nullopt;
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

// Edits arriving closer together than this are written to the file together.
constexpr std::chrono::milliseconds writeDelay(300);

constexpr auto ownerOnly = QFileDevice::ReadOwner | QFileDevice::WriteOwner;
constexpr auto groupAndOthers = QFileDevice::ReadGroup | QFileDevice::WriteGroup | QFileDevice::ExeGroup
    | QFileDevice::ReadOther | QFileDevice::WriteOther | QFileDevice::ExeOther;

// QSettings writes a new file and renames it over the old one, giving the new file the
// old one's mode: so the file is made private (created so, or narrowed) before each write.
void makePrivate(const QString &filePath)
{
    QFile file(filePath);
    if (file.exists()) {
        if (file.permissions() != (file.permissions() & ~groupAndOthers) && !file.setPermissions(ownerOnly))
            qCWarning(lcStorage) << "cannot make the settings file private" << filePath << file.errorString();
        return;
    }
    QDir().mkpath(QFileInfo(filePath).absolutePath());
    if (!file.open(QIODevice::WriteOnly, ownerOnly))
        qCWarning(lcStorage) << "cannot create settings file" << filePath << file.errorString();
}

// A whole number of days in the range the settings offer; the default otherwise.
int readDays(const QSettings &settings, const QString &key)
{
    bool ok = false;
    const int days = settings.value(key).toString().toInt(&ok);
    return ok && days >= 1 && days <= StorageManager::maxHistoryDays ? days
                                                                     : StorageManager::defaultHistoryDays;
}

} // namespace

StorageManager::StorageManager(const QString &filePath, const QString &defaultApiBase, QObject *parent)
    : StorageManager(filePath, defaultApiBase, nullptr, QString(), parent)
{
}

StorageManager::StorageManager(const QString &filePath, const QString &defaultApiBase, KeyStore *keys,
    const QString &serverTokenPath, QObject *parent)
    : QObject(parent)
    , m_defaults((makePrivate(filePath), filePath), QSettings::IniFormat)
    , m_serverTokenPath(serverTokenPath)
    , m_examples(readStringList(m_defaults, examplesKey))
    , m_apiBase(defaultApiBase) // a stored api_base is deliberately not read
    , m_apiKey(apiKeyKey, readKey(m_defaults, apiKeyKey), keys,
          [this](const QVariant &value) { store(apiKeyKey, value); })
    , m_lastVersionCheck(readDateTime(m_defaults, lastVersionCheckKey))
    , m_updateCheckEnabled(readBool(m_defaults, updateCheckEnabledKey))
    , m_onboardingFinished(readBool(m_defaults, onboardingFinishedKey))
    , m_provider(Provider(std::max(qsizetype(0), providerNames.indexOf(readString(m_defaults, providerKey)))))
    , m_modelBase(readString(m_defaults, modelBaseKey))
    , m_modelKey(modelKeyKey, readKey(m_defaults, modelKeyKey), keys,
          [this](const QVariant &value) { store(modelKeyKey, value); })
    , m_model(readString(m_defaults, modelNameKey))
    , m_historyEnabled(!m_defaults.contains(historyEnabledKey) || readBool(m_defaults, historyEnabledKey))
    , m_historyDays(readDays(m_defaults, historyDaysKey))
    , m_showChanges(readBool(m_defaults, showChangesKey))
    , m_savedInstructions(readStringList(m_defaults, savedInstructionsKey))
    , m_instructionShortcuts(readStringList(m_defaults, instructionShortcutsKey))
{
    // QSettings would write itself out at the next turn of the event loop, a file write
    // per keystroke; the timer writes instead.
    m_defaults.installEventFilter(this);
    m_writeTimer.setSingleShot(true);
    m_writeTimer.setInterval(writeDelay);
    connect(&m_writeTimer, &QTimer::timeout, this, &StorageManager::flush);
    if (QCoreApplication *application = QCoreApplication::instance())
        connect(application, &QCoreApplication::aboutToQuit, this, &StorageManager::flush);

    connect(&m_apiKey, &StoredSecret::loadedChanged, this,
        [this](bool changed) { secretLoaded(changed, &StorageManager::apiKeyChanged); });
    connect(&m_modelKey, &StoredSecret::loadedChanged, this,
        [this](bool changed) { secretLoaded(changed, &StorageManager::modelKeyChanged); });
    for (const StoredSecret *secret : { &m_apiKey, &m_modelKey }) {
        connect(
            secret, &StoredSecret::inSettingsFileChanged, this, &StorageManager::keysInSettingsFileChanged);
        connect(secret, &StoredSecret::savedChanged, this, &StorageManager::keysSavedChanged);
    }

    // A Tessary service the user chose in Settings keeps its address; an untouched store
    // always speaks to the built-in one.
    if (m_defaults.contains(providerKey) && m_provider == Provider::TessaryService
        && !readString(m_defaults, apiBaseKey).isEmpty())
        m_apiBase = readString(m_defaults, apiBaseKey);

    if (m_defaults.status() != QSettings::NoError)
        qCWarning(lcStorage) << "settings file" << filePath << "could not be read; using defaults";

    // Version checks are on until the user turns them off; a stored false stays.
    if (!m_updateCheckEnabled && !m_defaults.contains(updateCheckEnabledKey))
        setUpdateCheckEnabled(true);
}

StorageManager::~StorageManager()
{
    m_apiKey.keepUnconfirmedInFile();
    m_modelKey.keepUnconfirmedInFile();
    flush();
}

QString StorageManager::defaultFilePath()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation)
        + u"/Tessary/Tessary.conf"_s;
}

QString StorageManager::defaultServerTokenPath()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation)
        + u"/tessary-server/client-token"_s;
}

// The value is kept at once (a QSettings opened on the same file in this process sees
// it); the file follows when the timer runs out, or at the latest before the end.
void StorageManager::store(const QString &key, const QVariant &value)
{
    if (value.isValid())
        m_defaults.setValue(key, value);
    else
        m_defaults.remove(key);
    if (!std::exchange(m_unsaved, true))
        m_writeTimer.start();
}

void StorageManager::flush()
{
    if (!std::exchange(m_unsaved, false))
        return;
    m_writeTimer.stop();
    makePrivate(m_defaults.fileName());
    m_defaults.sync();
    if (m_defaults.status() != QSettings::NoError)
        qCWarning(lcStorage) << "cannot write the settings to" << m_defaults.fileName();
}

bool StorageManager::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == &m_defaults && event->type() == QEvent::UpdateRequest)
        return true;
    return QObject::eventFilter(watched, event);
}

void StorageManager::secretLoaded(bool valueChanged, void (StorageManager::*announce)())
{
    if (valueChanged) {
        Q_EMIT(this->*announce)();
        Q_EMIT serviceUsableChanged();
    }
    if (keysLoaded())
        Q_EMIT keysLoadedChanged();
}

bool StorageManager::keysInSettingsFile() const
{
    return m_apiKey.inSettingsFile() || m_modelKey.inSettingsFile();
}

void StorageManager::whenKeysLoaded(QObject *context, std::function<void()> action)
{
    if (keysLoaded()) {
        action();
        return;
    }
    auto connection = std::make_shared<QMetaObject::Connection>();
    *connection = connect(this, &StorageManager::keysLoadedChanged, context, [connection, action] {
        disconnect(*connection);
        action();
    });
}

QString StorageManager::credential() const
{
    const QString key = apiKey();
    return key.isEmpty() ? pairedToken() : key;
}

QString StorageManager::pairedToken() const
{
    if (m_serverTokenPath.isEmpty())
        return {};
    const QString host = QUrl(m_apiBase).host();
    if (host != u"localhost"_s && !QHostAddress(host).isLoopback())
        return {};
    // Only a file of this user's that nobody else can read was written by their own server.
    const QFileInfo info(m_serverTokenPath);
    if (!info.isFile() || info.ownerId() != ::getuid() || (info.permissions() & groupAndOthers))
        return {};
    QFile file(m_serverTokenPath);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    return QString::fromUtf8(file.read(4096)).trimmed();
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
    m_apiKey.assign(apiKey);
    Q_EMIT apiKeyChanged();
    Q_EMIT serviceUsableChanged();
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

void StorageManager::setHistoryEnabled(bool enabled)
{
    if (m_historyEnabled == enabled)
        return;
    m_historyEnabled = enabled;
    store(historyEnabledKey, enabled);
    Q_EMIT historyEnabledChanged();
}

void StorageManager::setHistoryDays(int days)
{
    days = std::clamp(days, 1, maxHistoryDays);
    if (m_historyDays == days)
        return;
    m_historyDays = days;
    store(historyDaysKey, days);
    Q_EMIT historyDaysChanged();
}

void StorageManager::setShowChanges(bool show)
{
    if (m_showChanges == show)
        return;
    m_showChanges = show;
    store(showChangesKey, show);
    Q_EMIT showChangesChanged();
}

void StorageManager::setSavedInstructions(const QStringList &instructions)
{
    if (m_savedInstructions == instructions)
        return;
    m_savedInstructions = instructions;
    store(savedInstructionsKey, instructions);
    Q_EMIT savedInstructionsChanged();
}

void StorageManager::setInstructionShortcuts(const QStringList &shortcuts)
{
    if (m_instructionShortcuts == shortcuts)
        return;
    m_instructionShortcuts = shortcuts;
    store(instructionShortcutsKey, shortcuts);
    Q_EMIT instructionShortcutsChanged();
}

void StorageManager::setOnboardingFinished()
{
    m_onboardingFinished = true;
    store(onboardingFinishedKey, true);
}

void StorageManager::setProvider(Provider provider)
{
    m_provider = provider;
    store(providerKey, providerNames.value(int(provider)));
    Q_EMIT providerChanged();
    Q_EMIT serviceUsableChanged();
}

void StorageManager::setModelBase(const QString &base)
{
    m_modelBase = base;
    store(modelBaseKey, m_modelBase);
    Q_EMIT modelBaseChanged();
    Q_EMIT serviceUsableChanged();
}

void StorageManager::setModelKey(const QString &key)
{
    m_modelKey.assign(key);
    Q_EMIT modelKeyChanged();
}

void StorageManager::setModel(const QString &model)
{
    m_model = model;
    store(modelNameKey, m_model);
    Q_EMIT modelChanged();
    Q_EMIT serviceUsableChanged();
}

bool StorageManager::serviceUsable() const
{
    // A model server spoken to directly needs to be known and a model chosen; whether it
    // wants a key only it can say. The Tessary service needs its key, or a paired server.
    if (m_provider == Provider::TessaryService)
        return !credential().isEmpty();
    return !m_modelBase.isEmpty() && !m_model.isEmpty();
}
