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
    connect(m_viewModel, &PopupViewModel::closeRequested, this, &PopupWindowController::close);
}

PopupWindowController::PopupWindowController(RewriteSession &session, QQmlEngine &engine, QObject *parent)
    : QObject(parent)
    , m_session(session)
    , m_viewModel(new PopupViewModel(&session, this))
    , m_window(PopupWindowFactory(engine).create(m_viewModel))
{
    connect(m_viewModel, &PopupViewModel::closeRequested, this, &PopupWindowController::close);
}

PopupWindowController::~PopupWindowController() = default;

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
