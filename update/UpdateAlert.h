#pragma once

#include <QObject>
#include <QString>
#include <QtQml/qqmlregistration.h>

#include <memory>

class QQmlEngine;
class QQuickWindow;
class UpdateService;

// The window an interactive version check shows when it found a newer release: the
// program's own themed window, not modal, worked from the keyboard. The window thread goes
// on while it is open, and a second announcement shows its text in the same window rather
// than stacking another. Download opens the release; Later and Skip This Version close it,
// remembering nothing, so the next check the user asks for offers the release again.
class UpdateAlert : public QObject
{
    Q_OBJECT
    QML_ELEMENT
    QML_UNCREATABLE("UpdateAlert is created by the application")

    Q_PROPERTY(QString message READ message NOTIFY messageChanged)

public:
    explicit UpdateAlert(UpdateService &updates, QObject *parent = nullptr);
    ~UpdateAlert() override;

    QString message() const { return m_message; }
    // The window once an alert has been shown; it stays, hidden, after it closes.
    QQuickWindow *window() const { return m_window.get(); }

    Q_INVOKABLE void download();

Q_SIGNALS:
    void messageChanged();

private:
    void show(const QString &informativeText);

    UpdateService &m_updates;
    QString m_message;
    // Made at the first alert only: a program that never shows one loads no view for it.
    std::unique_ptr<QQmlEngine> m_engine;
    std::unique_ptr<QQuickWindow> m_window;
};
