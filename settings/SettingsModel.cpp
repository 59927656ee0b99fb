#include "SettingsModel.h"

#include "StorageManager.h"

#include <QCoreApplication>
#include <QDesktopServices>
#include <QDir>
#include <QFile>
#include <QKeySequence>
#include <QLocale>
#include <QLoggingCategory>
#include <QSaveFile>
#include <QStandardPaths>

Q_LOGGING_CATEGORY(lcSettings, "tessary.settings", QtInfoMsg)

using namespace Qt::StringLiterals;

namespace {

QString defaultAutostartDir()
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericConfigLocation) + u"/autostart"_s;
}

QByteArray autostartEntry(const QString &program)
{
    // Exec needs its own quoting: a path with blanks stays one argument.
    QString exec = program;
    exec.replace(u"\\"_s, u"\\\\"_s).replace(u"\""_s, u"\\\""_s);
    return "[Desktop Entry]\n"
           "Type=Application\n"
           "Name=Tessary\n"
           "Comment=Rewrite selected text in your own voice\n"
           "Exec=\""
        + exec.toUtf8()
        + "\"\n"
          "Icon=app.tessary.Tessary\n"
          "Terminal=false\n"
          "X-GNOME-Autostart-enabled=true\n";
}

} // namespace

SettingsModel::SettingsModel(StorageManager &storage, DesktopShortcut *desktopShortcut, QObject *parent)
    : SettingsModel(storage, defaultAutostartDir(), &QDesktopServices::openUrl,
        ModelProbe::candidatesFromEnvironment(), desktopShortcut, parent)
{
}

SettingsModel::SettingsModel(StorageManager &storage, const QString &autostartDir, UrlOpener openUrl,
    QList<ModelProbe::Candidate> localServers, DesktopShortcut *desktopShortcut, QObject *parent)
    : QObject(parent)
    , m_storage(storage)
    , m_autostartDir(autostartDir)
    , m_openUrl(std::move(openUrl))
    , m_chooser(storage, std::move(localServers))
    , m_shortcutSetup(desktopShortcut)
{
    connect(&m_storage, &StorageManager::examplesChanged, this, &SettingsModel::samplesChanged);
    connect(
        &m_storage, &StorageManager::lastVersionCheckChanged, this, &SettingsModel::lastCheckedTextChanged);
}

bool SettingsModel::canAddSample() const
{
    return m_storage.examples().size() < maxAddableSamples;
}

QString SettingsModel::lastCheckedText() const
{
    const QDateTime when = m_storage.lastVersionCheck();
    if (!when.isValid())
        return {};
    return u"Last checked: "_s + QLocale().toString(when.toLocalTime(), QLocale::ShortFormat);
}

QString SettingsModel::updateTitle() const
{
    return showsUpdate() ? u"Update Available: v"_s + m_release->version : QString();
}

QString SettingsModel::releaseNotes() const
{
    return showsUpdate() ? m_release->notes : QString();
}

void SettingsModel::setUpdateState(bool checking, bool updateAvailable, const std::optional<Release> &release)
{
    m_checking = checking;
    m_updateAvailable = updateAvailable;
    m_release = release;
    Q_EMIT updateStateChanged();
}

void SettingsModel::setExample(int index, const QString &text)
{
    QStringList examples = m_storage.examples();
    // An editor whose row has just gone may still report its text: it must not land
    // on whichever sample moved into its place, nor past the end.
    if (index < 0 || index >= examples.size() || examples.at(index) == text)
        return;
    examples[index] = text;
    m_storage.setExamples(examples);
}

void SettingsModel::removeExample(int index)
{
    QStringList examples = m_storage.examples();
    if (index < 0 || index >= examples.size())
        return;
    examples.removeAt(index);
    m_storage.setExamples(examples);
}

void SettingsModel::addExample()
{
    if (!canAddSample())
        return;
    m_storage.setExamples(m_storage.examples() << QString());
}

void SettingsModel::setInstruction(int index, const QString &text)
{
    QStringList instructions = m_storage.savedInstructions();
    // As with samples: a row that has just gone must not write into the one after it.
    if (index < 0 || index >= instructions.size() || instructions.at(index) == text)
        return;
    instructions[index] = text;
    m_storage.setSavedInstructions(instructions);
}

void SettingsModel::removeInstruction(int index)
{
    QStringList instructions = m_storage.savedInstructions();
    if (index < 0 || index >= instructions.size())
        return;
    // The shortcut goes with its instruction, so the ones after keep theirs.
    if (QStringList shortcuts = m_storage.instructionShortcuts(); index < shortcuts.size()) {
        shortcuts.removeAt(index);
        m_storage.setInstructionShortcuts(shortcuts);
    }
    instructions.removeAt(index);
    m_storage.setSavedInstructions(instructions);
}

bool SettingsModel::setInstructionShortcut(int index, int key, int modifiers)
{
    if (index < 0 || index >= m_storage.savedInstructions().size())
        return false;
    QString sequence;
    if (key != 0) {
        const auto held = Qt::KeyboardModifiers(modifiers)
            & (Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier | Qt::ShiftModifier);
        const bool modifierKey = key == Qt::Key_Control || key == Qt::Key_Alt || key == Qt::Key_Meta
            || key == Qt::Key_Shift || key == Qt::Key_Super_L || key == Qt::Key_Super_R
            || key == Qt::Key_AltGr;
        if (modifierKey || !(held & (Qt::ControlModifier | Qt::AltModifier | Qt::MetaModifier)))
            return false;
        sequence = QKeySequence(QKeyCombination(held, Qt::Key(key))).toString(QKeySequence::PortableText);
    }
    QStringList shortcuts = m_storage.instructionShortcuts();
    while (shortcuts.size() <= index)
        shortcuts.append(QString());
    shortcuts[index] = sequence;
    m_storage.setInstructionShortcuts(shortcuts);
    return true;
}

QString SettingsModel::instructionCommand(int index) const
{
    const QString words = m_storage.savedInstructions().value(index).trimmed();
    if (words.isEmpty())
        return {};
    // Single quotes keep every character as typed in a shell command line.
    QString quoted = words;
    quoted.replace(u"'"_s, u"'\\''"_s);
    return u"tessary --trigger --instruction '%1'"_s.arg(quoted);
}

void SettingsModel::addInstruction()
{
    m_storage.setSavedInstructions(m_storage.savedInstructions() << QString());
}

void SettingsModel::download()
{
    if (!m_release)
        return;
    const QUrl url(m_release->downloadUrl, QUrl::StrictMode);
    if (!url.isValid() || url.scheme().isEmpty())
        return;
    if (!m_openUrl(url))
        qCWarning(lcSettings) << "no application opened the download address";
}

QString SettingsModel::autostartFilePath() const
{
    return m_autostartDir + u"/tessary.desktop"_s;
}

bool SettingsModel::startAtLogin() const
{
    return QFile::exists(autostartFilePath());
}

void SettingsModel::setStartAtLogin(bool enabled)
{
    if (enabled == startAtLogin())
        return;
    if (enabled) {
        QSaveFile file(autostartFilePath());
        if (!QDir().mkpath(m_autostartDir) || !file.open(QIODevice::WriteOnly)
            || file.write(autostartEntry(QCoreApplication::applicationFilePath())) < 0 || !file.commit())
            qCWarning(lcSettings) << "cannot write the autostart entry" << autostartFilePath();
    } else if (!QFile::remove(autostartFilePath())) {
        qCWarning(lcSettings) << "cannot remove the autostart entry" << autostartFilePath();
    }
    // Also after a failure, so the toggle shows what is really on disk.
    Q_EMIT startAtLoginChanged();
}

QString SettingsModel::version()
{
    return QCoreApplication::applicationVersion();
}
