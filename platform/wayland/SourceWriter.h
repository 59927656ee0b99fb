#pragma once

#include <QByteArray>
#include <QObject>
#include <QTimer>

class QSocketNotifier;

// Hands our clipboard contents to a program that asked for them: writes without waiting,
// as fast as the reader takes them, and gives up on a reader that stops taking them.
class SourceWriter : public QObject
{
    Q_OBJECT
public:
    // Takes ownership of fd and closes it when done.
    static void write(int fd, const QByteArray &bytes);

    static constexpr int idleDeadlineMs = 5000;

private:
    SourceWriter(int fd, const QByteArray &bytes);
    ~SourceWriter() override;
    void writeAvailable();

    int m_fd;
    QByteArray m_bytes;
    qsizetype m_written = 0;
    QSocketNotifier *m_notifier;
    QTimer m_deadline;
};
