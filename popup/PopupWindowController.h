#pragma once

#include <QObject>

#include <memory>

class PopupViewModel;
class PopupWindowFactory;
class QQmlEngine;
class QQuickWindow;
class RewriteSession;
class Workspace;

// One popup: a small frameless window that stays above the others, showing one rewrite
// session. Closing only hides it, and ends the session; the controller keeps the window
// until it is destroyed.
class PopupWindowController : public QObject
{
    Q_OBJECT

public:
    // The window comes from the factory, which keeps one built ahead.
    PopupWindowController(RewriteSession &session, PopupWindowFactory &windows, QObject *parent = nullptr);
    // Builds its window in the engine, which is shared by all popups so that a new one
    // needs no fresh compile.
    PopupWindowController(RewriteSession &session, QQmlEngine &engine, QObject *parent = nullptr);
    ~PopupWindowController() override;

    // Centres the window on the screen that holds the pointer, shows it with the keyboard
    // focus (asked of the workspace, when there is one) and starts the session's rewrite.
    void showWindow(Workspace *workspace = nullptr);
    void close();

    PopupViewModel *viewModel() const { return m_viewModel; }
    QQuickWindow *window() const { return m_window.get(); }

private:
    void tieToSession();

    RewriteSession &m_session;
    PopupViewModel *m_viewModel;
    std::unique_ptr<QQuickWindow> m_window;
};
