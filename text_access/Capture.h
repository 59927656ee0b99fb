#pragma once

#include "Platform.h"

#include <QString>

#include <optional>

// Where a captured text came from, recorded once at capture: Replace writes only there.
struct CaptureTarget
{
    enum class Method {
        None, // nothing was captured
        Accessibility, // read over the accessibility bus; replaced there too
        Clipboard, // a synthesized copy; replaced by a synthesized paste
        Primary, // a terminal's PRIMARY selection; never typed into, so Replace copies
        Handed, // handed over D-Bus; replaced only where that text is still selected
        // Where no key can be typed nor the clipboard read from the background, the popup
        // takes what the user copied once it has the keyboard; Replace copies.
        Copied,
    };

    Method method = Method::None;
    std::optional<RunningApplication> application; // the window the text came from
    std::optional<Element> element; // the focused element, when read over the bus
    // The text selected there at capture: written over only while it is still selected.
    QString selected;
};

// Where a Replace wrote its text, kept so that it can be taken back.
struct WrittenPlace
{
    RunningApplication application; // the window written into
    // The element and the offset the text begins at, where it was written over the
    // accessibility bus; none after a paste, whose text cannot be read back.
    std::optional<Element> element;
    int start = 0;
};

struct Capture
{
    std::optional<QString> text; // never empty when present
    CaptureTarget target;
};

// The window's application as log lines and messages name it.
inline QString nameOrUnknown(const std::optional<RunningApplication> &app)
{
    return app && !app->name.isEmpty() ? app->name : QStringLiteral("Unknown");
}
