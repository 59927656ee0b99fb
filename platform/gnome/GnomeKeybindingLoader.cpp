#include "GnomeKeybindingLoader.h"

#include "DesktopShortcutPlugin.h"
#include "GnomeKeybinding.h"
#include "TriggerCommand.h"

#include <QDir>
#include <QFileInfo>
#include <QLoggingCategory>
#include <QPluginLoader>

using namespace Qt::StringLiterals;

namespace {

Q_LOGGING_CATEGORY(lcGnome, "tessary.platform.gnome")

class ManualGnomeShortcut : public DesktopShortcut
{
public:
    explicit ManualGnomeShortcut(const QString &program)
        : m_command(triggerCommand(program))
    {
    }

    // Without GIO nothing can read GNOME's list: the advice stays in Settings.
    bool isBound() const override { return false; }
    bool canAdd() const override { return false; }
    void add(std::function<void(const QString &error)> done) override
    {
        done(u"GNOME's keyboard settings cannot be changed from here."_s);
    }
    QString advice() const override { return GnomeKeybinding::manualAdvice(m_command); }
    QString configLine() const override { return {}; }

private:
    QString m_command;
};

} // namespace

std::unique_ptr<DesktopShortcut> loadGnomeKeybinding(const QString &program)
{
    const QString path = QDir::cleanPath(
        QFileInfo(program).absolutePath() + u'/' + QString::fromUtf8(TESSARY_GNOME_KEYBINDING_PLUGIN));
    // Never unloaded: the shortcut's code lives in the plugin until the program ends.
    QPluginLoader loader(path);
    if (auto *plugin = qobject_cast<DesktopShortcutPlugin *>(loader.instance()))
        return plugin->create(program);
    const QString why = loader.isLoaded() ? u"it is not a shortcut plugin"_s : loader.errorString();
    qCWarning(lcGnome).noquote() << "cannot load" << path << "for GNOME's keyboard shortcuts:" << why;
    return std::make_unique<ManualGnomeShortcut>(program);
}
