#pragma once

#include "Platform.h"

using GSettings = struct _GSettings;
using GSettingsSchema = struct _GSettingsSchema;

// Ctrl+Alt+H as a custom keyboard shortcut in GNOME's own settings, the list that GNOME's
// Settings → Keyboard shows and the settings daemon runs. Ours is appended to the user's
// own shortcuts, never in their place.
class GnomeKeybinding : public DesktopShortcut
{
public:
    // program: the running binary, from which the command the desktop runs is made.
    explicit GnomeKeybinding(const QString &program);
    ~GnomeKeybinding() override;
    GnomeKeybinding(const GnomeKeybinding &) = delete;
    GnomeKeybinding &operator=(const GnomeKeybinding &) = delete;

    bool isBound() const override;
    bool canAdd() const override;
    void add(std::function<void(const QString &error)> done) override;
    QString advice() const override;
    QString configLine() const override { return {}; }

    // How to bind it by hand, where Tessary cannot.
    static QString manualAdvice(const QString &command)
    {
        return QStringLiteral(
            "To use Ctrl+Alt+H, add a custom shortcut in GNOME's Settings → Keyboard that runs `%1`.")
            .arg(command);
    }

    static constexpr const char *listSchema = "org.gnome.settings-daemon.plugins.media-keys";
    static constexpr const char *entrySchema
        = "org.gnome.settings-daemon.plugins.media-keys.custom-keybinding";
    static constexpr const char *listKey = "custom-keybindings";
    static constexpr const char *ownPath
        = "/org/gnome/settings-daemon/plugins/media-keys/custom-keybindings/tessary/";

private:
    QString write() const;

    QString m_program;
    QString m_command;
    // Both null where GNOME's settings schemas are not installed.
    GSettings *m_list = nullptr;
    GSettingsSchema *m_entrySchema = nullptr;
    bool m_saved = false; // false where settings would only live in memory until we quit
};
