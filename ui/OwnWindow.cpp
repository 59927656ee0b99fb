#include "OwnWindow.h"

#include "Platform.h"

#include <QCursor>
#include <QGuiApplication>
#include <QScreen>
#include <QWindow>

void OwnWindow::centre(QWindow *window, QScreen *screen)
{
    if (!screen)
        screen = QGuiApplication::screenAt(QCursor::pos());
    if (!screen)
        screen = QGuiApplication::primaryScreen();
    if (!screen)
        return;
    const QRect area = screen->availableGeometry();
    window->setScreen(screen);
    window->setPosition(
        area.x() + (area.width() - window->width()) / 2, area.y() + (area.height() - window->height()) / 2);
}

void OwnWindow::bringForward(QWindow *window, Workspace *workspace)
{
    window->show();
    window->raise();
    window->requestActivate();
    if (workspace)
        workspace->activateSelf(window);
}
