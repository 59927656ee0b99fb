#pragma once

#include "Platform.h"

#include <memory>

// GnomeKeybinding from its plugin, found relative to the program's own folder as built and
// as installed. Where the plugin does not load, one warning says why, and the shortcut
// returned tells the user how to bind Ctrl+Alt+H by hand in GNOME's Settings.
std::unique_ptr<DesktopShortcut> loadGnomeKeybinding(const QString &program);
