#include "PopupWindowController.h"

#include "OwnWindow.h"
#include "PopupViewModel.h"
#include "PopupWindowFactory.h"
#include "RewriteSession.h"

#include <QQuickWindow>

PopupWindowController::PopupWindowController(
    RewriteSession &session, PopupWindowFactory &windows, QObject *parent)
    : QObject(parent)
    , m_session(session)
    , m_viewModel(new PopupViewModel(&session, this))
    , m_window(windows.create(m_viewModel))
{
    tieToSession();
}

PopupWindowController::PopupWindowController(RewriteSession &session, QQmlEngine &engine, QObject *parent)
    : QObject(parent)
    , m_session(session)
    , m_viewModel(new PopupViewModel(&session, this))
    , m_window(PopupWindowFactory(engine).create(m_viewModel))
{
    tieToSession();
}

// The window goes with the session that owns this controller; its hiding then ends nothing.
PopupWindowController::~PopupWindowController()
{
    if (m_window)
        m_window->disconnect(this);
}

void PopupWindowController::tieToSession()
{
    connect(m_viewModel, &PopupViewModel::closeRequested, this, &PopupWindowController::close);
    // Closed by the user (Escape, its close button, the window manager): the rewrite is no
    // longer wanted, and a model left streaming would go on working for nobody.
    if (m_window) {
        connect(m_window.get(), &QWindow::visibleChanged, this, [this](bool visible) {
            if (!visible)
                m_session.end();
        });
    }
}

void PopupWindowController::showWindow(Workspace *workspace)
{
    if (m_window) {
        OwnWindow::centre(m_window.get());
        OwnWindow::bringForward(m_window.get(), workspace);
    }
    // The first rewrite starts when the popup is on screen.
    m_session.start();
}

void PopupWindowController::close()
{
    if (m_window)
        m_window->close();
}
