#pragma once

#include <QObject>
#include <QPointer>
#include <QString>

#include <memory>

class PopupHost;
class PopupViewModel;
class PopupWindowFactory;
class QQmlEngine;
class QQuickWindow;
class Rewriter;

// One popup: a small frameless window that stays above the others, showing the
// rewrite of one captured text. Closing only hides it; the controller keeps the window
// and its model (and a rewrite still running goes on) until it is destroyed.
class PopupWindowController : public QObject
{
    Q_OBJECT

public:
    static constexpr int width = 360;
    static constexpr int height = 500;

    // The window comes from the factory, which keeps one built ahead.
    PopupWindowController(const QString &selectedText, Rewriter &rewriter, PopupHost *host,
        PopupWindowFactory &windows, QObject *parent = nullptr);
    // Builds its window in the engine, which is shared by all popups so that a new one
    // needs no fresh compile.
    PopupWindowController(const QString &selectedText, Rewriter &rewriter, PopupHost *host,
        QQmlEngine &engine, QObject *parent = nullptr);
    ~PopupWindowController() override;

    // Centres the window on the screen that holds the pointer and shows it.
    void showWindow();
    void close();

    PopupViewModel *viewModel() const { return m_viewModel; }
    QQuickWindow *window() const { return m_window.get(); }

private:
    PopupViewModel *m_viewModel;
    std::unique_ptr<QQuickWindow> m_window;
};
