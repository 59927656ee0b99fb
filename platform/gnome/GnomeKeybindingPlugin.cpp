#include "DesktopShortcutPlugin.h"
#include "GnomeKeybinding.h"

#include <QObject>

// GnomeKeybinding with GIO, loaded only in GNOME sessions.
class GnomeKeybindingPlugin : public QObject, public DesktopShortcutPlugin
{
    Q_OBJECT
    Q_PLUGIN_METADATA(IID DesktopShortcutPlugin_iid)
    Q_INTERFACES(DesktopShortcutPlugin)

public:
    std::unique_ptr<DesktopShortcut> create(const QString &program) override
    {
        return std::make_unique<GnomeKeybinding>(program);
    }
};

#include "GnomeKeybindingPlugin.moc"
