#pragma once

#include "Platform.h"

#include <QList>

// Scripted frontmost application; records activation requests.
class FakeWorkspace : public Workspace
{
public:
    std::optional<RunningApplication> frontmost;
    bool activationSucceeds = true;
    QList<qint64> activated;

    std::optional<RunningApplication> frontmostApplication() override { return frontmost; }
    void activate(const RunningApplication &app, std::function<void(bool)> done) override;
    void activateSelf(QWindow *) override { }
};
