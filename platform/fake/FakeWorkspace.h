#pragma once

#include "Platform.h"

#include <QList>

// Scripted frontmost application; records activation requests. With silent set, asks
// about the window in front are never answered, like a hung window system.
class FakeWorkspace : public Workspace
{
public:
    std::optional<RunningApplication> frontmost;
    bool activationSucceeds = true;
    bool silent = false;
    QList<qint64> activated;

    void frontmostApplication(std::function<void(std::optional<RunningApplication>)> done) override;
    void activate(const RunningApplication &app, std::function<void(bool)> done) override;
    void activateSelf(QWindow *) override { }
};
