#include "FakeWorkspace.h"

void FakeWorkspace::frontmostApplication(std::function<void(std::optional<RunningApplication>)> done)
{
    if (!silent)
        done(frontmost);
}

void FakeWorkspace::activate(const RunningApplication &app, std::function<void(bool)> done)
{
    activated.append(app.pid);
    if (activationSucceeds)
        frontmost = app;
    if (done)
        done(activationSucceeds);
}
