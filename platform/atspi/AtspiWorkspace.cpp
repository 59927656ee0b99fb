#include "AtspiWorkspace.h"

#include "AtspiAccessibility.h"

#include <QFile>
#include <QWindow>

AtspiWorkspace::AtspiWorkspace(AtspiAccessibility &accessibility)
    : m_accessibility(accessibility)
{
}

void AtspiWorkspace::frontmostApplication(std::function<void(std::optional<RunningApplication>)> done)
{
    m_accessibility.lastFocusedApplication([done = std::move(done)](std::optional<quint32> pid) {
        if (!pid) {
            done(std::nullopt);
            return;
        }
        // The kernel's name of the process is all there is without a window to ask.
        QFile comm(QStringLiteral("/proc/%1/comm").arg(*pid));
        const QString name
            = comm.open(QIODevice::ReadOnly) ? QString::fromUtf8(comm.readAll()).trimmed() : QString();
        done(RunningApplication { *pid, name, 0, {} });
    });
}

void AtspiWorkspace::activate(const RunningApplication &, std::function<void(bool active)> done)
{
    // Nobody may ask these compositors to raise another program's window. When the popup
    // closes, the keyboard goes back to the window that had it; Replace then writes only
    // where the captured text is still selected.
    if (done)
        done(true);
}

void AtspiWorkspace::activateSelf(QWindow *window)
{
    window->requestActivate();
}
