#include "PopupWindowController.h"

#include "PopupViewModel.h"
#include "PopupWindowFactory.h"

#include <QCursor>
#include <QGuiApplication>
#include <QQuickWindow>
#include <QScreen>

PopupWindowController::PopupWindowController(const QString &selectedText, Rewriter &rewriter, PopupHost *host,
    PopupWindowFactory &windows, QObject *parent)
    : QObject(parent)
    , m_viewModel(new PopupViewModel(selectedText, rewriter, host, this))
    , m_window(windows.create(m_viewModel))
{
}

PopupWindowController::PopupWindowController(
    const QString &selectedText, Rewriter &rewriter, PopupHost *host, QQmlEngine &engine, QObject *parent)
    : QObject(parent)
    , m_viewModel(new PopupViewModel(selectedText, rewriter, host, this))
    , m_window(PopupWindowFactory(engine).create(m_viewModel))
{
}

PopupWindowController::~PopupWindowController() = default;

void PopupWindowController::showWindow()
{
    if (!m_window)
        return;
    QScreen *screen = QGuiApplication::screenAt(QCursor::pos());
    if (!screen)
        screen = QGuiApplication::primaryScreen();
    if (screen) {
        const QRect area = screen->availableGeometry();
        m_window->setScreen(screen);
        m_window->setPosition(area.x() + (area.width() - width) / 2, area.y() + (area.height() - height) / 2);
    }
    m_window->show();
    m_window->raise();
    m_window->requestActivate();
}

void PopupWindowController::close()
{
    if (m_window)
        m_window->close();
}
