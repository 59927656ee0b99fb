#pragma once

class QScreen;
class QWindow;
class Workspace;

// How the program puts its own windows on screen, the popup as much as Settings.
namespace OwnWindow {

// Centres the window on the screen, or where none is given on the one under the pointer:
// where the user is looking.
void centre(QWindow *window, QScreen *screen = nullptr);
// Shows the window in front with the keyboard focus. A tray program is not the active
// application: it asks the window manager too (workspace may be null).
void bringForward(QWindow *window, Workspace *workspace);

} // namespace OwnWindow
