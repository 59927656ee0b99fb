#pragma once

#include "Platform.h"

class AtspiAccessibility;

// The window in front where the desktop tells no client (GNOME and other Wayland
// compositors without a protocol for it): the application on the accessibility bus whose
// window is active, leaving Tessary itself out.
class AtspiWorkspace : public Workspace
{
public:
    explicit AtspiWorkspace(AtspiAccessibility &accessibility);

    void frontmostApplication(std::function<void(std::optional<RunningApplication>)> done) override;
    void activate(const RunningApplication &app, std::function<void(bool active)> done) override;
    void activateSelf(QWindow *window) override;

private:
    AtspiAccessibility &m_accessibility;
};
