#pragma once

#include "Platform.h"

#include <QtPlugin>

#include <memory>

// A desktop's own way of binding Ctrl+Alt+H, built as a plugin when it needs libraries
// that every other desktop would load for nothing.
class DesktopShortcutPlugin
{
public:
    virtual ~DesktopShortcutPlugin() = default;
    // program: the running binary, from which the command the desktop runs is made.
    virtual std::unique_ptr<DesktopShortcut> create(const QString &program) = 0;
};

#define DesktopShortcutPlugin_iid "app.tessary.DesktopShortcutPlugin/1"
Q_DECLARE_INTERFACE(DesktopShortcutPlugin, DesktopShortcutPlugin_iid)
