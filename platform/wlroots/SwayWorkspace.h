#pragma once

#include "Platform.h"

#include <QByteArray>
#include <QJsonDocument>
#include <QObject>
#include <QSet>

#include <deque>

class QLocalSocket;

// The window in front, activation and our windows' placement on sway, asked over its
// IPC socket ($SWAYSOCK). One connection stays open: spawning swaymsg for every
// question would cost a process each time the shortcut is pressed.
class SwayWorkspace : public QObject, public Workspace
{
    Q_OBJECT
public:
    explicit SwayWorkspace(QString socketPath, QObject *parent = nullptr);
    ~SwayWorkspace() override;

    void frontmostApplication(std::function<void(std::optional<RunningApplication>)> done) override;
    void activate(const RunningApplication &app, std::function<void(bool active)> done) override;
    // Floats the window, centred on the pointer and inside the screen, with the keyboard focus.
    void activateSelf(QWindow *window) override;

private:
    // An empty document when sway did not answer in time.
    using Reply = std::function<void(const QJsonDocument &)>;
    void ask(quint32 type, const QByteArray &payload, Reply reply);
    void runCommand(const QString &command, Reply reply = {});
    void place(const QString &criteria, int attemptsLeft);
    void sendUnsent();
    void readReplies();
    void fail();

    QString m_socketPath;
    QLocalSocket *m_socket = nullptr;
    QByteArray m_unsent; // asked before the connection was up
    QByteArray m_buffer; // answers read so far
    // sway answers in the order it was asked.
    std::deque<std::pair<quint64, Reply>> m_waiting;
    quint64 m_lastRequest = 0;
    // Titles of our windows that sway already places whenever they appear.
    QSet<QString> m_placedTitles;
};
