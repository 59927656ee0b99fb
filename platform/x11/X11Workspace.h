#pragma once

#include "ApplicationName.h"
#include "Platform.h"
#include "X11Connection.h"

#include <QHash>
#include <QObject>

// The active window and its application from the window manager's EWMH hints.
class X11Workspace : public QObject, public Workspace
{
    Q_OBJECT
public:
    explicit X11Workspace(std::shared_ptr<X11Connection> x11, QObject *parent = nullptr);

    void frontmostApplication(std::function<void(std::optional<RunningApplication>)> done) override;
    void activate(const RunningApplication &app, std::function<void(bool active)> done) override;
    void activateSelf(QWindow *window) override;

private:
    void describe(xcb_window_t window, std::function<void(std::optional<RunningApplication>)> done);
    QString nameOf(const std::optional<WindowClass> &windowClass, qint64 pid);
    void waitUntilActive(xcb_window_t window, int checksLeft, std::function<void(bool)> done);

    std::shared_ptr<X11Connection> m_x11;
    // Desktop entries, read once on a worker thread; until they are in, windows go by
    // their class.
    std::optional<QList<DesktopEntry>> m_entries;
    QHash<QString, QString> m_namesByClass;
};
