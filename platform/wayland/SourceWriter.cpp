#include "SourceWriter.h"

#include <QSocketNotifier>

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <unistd.h>

namespace {

// A reader that hangs up early must not end the program with SIGPIPE: the write fails
// with EPIPE instead while this is alive.
class IgnoreBrokenPipe
{
public:
    IgnoreBrokenPipe()
    {
        struct sigaction ignore = {};
        ignore.sa_handler = SIG_IGN;
        sigemptyset(&ignore.sa_mask);
        sigaction(SIGPIPE, &ignore, &m_previous);
    }
    ~IgnoreBrokenPipe() { sigaction(SIGPIPE, &m_previous, nullptr); }
    IgnoreBrokenPipe(const IgnoreBrokenPipe &) = delete;
    IgnoreBrokenPipe &operator=(const IgnoreBrokenPipe &) = delete;

private:
    struct sigaction m_previous = {};
};

} // namespace

void SourceWriter::write(int fd, const QByteArray &bytes)
{
    fcntl(fd, F_SETFL, fcntl(fd, F_GETFL) | O_NONBLOCK);
    auto *writer = new SourceWriter(fd, bytes);
    writer->writeAvailable();
}

SourceWriter::SourceWriter(int fd, const QByteArray &bytes)
    : m_fd(fd)
    , m_bytes(bytes)
    , m_notifier(new QSocketNotifier(fd, QSocketNotifier::Write, this))
{
    m_notifier->setEnabled(false);
    connect(m_notifier, &QSocketNotifier::activated, this, &SourceWriter::writeAvailable);
    m_deadline.setSingleShot(true);
    connect(&m_deadline, &QTimer::timeout, this, &QObject::deleteLater);
}

SourceWriter::~SourceWriter()
{
    close(m_fd);
}

void SourceWriter::writeAvailable()
{
    const IgnoreBrokenPipe ignore;
    while (m_written < m_bytes.size()) {
        const ssize_t count
            = ::write(m_fd, m_bytes.constData() + m_written, size_t(m_bytes.size() - m_written));
        if (count > 0) {
            m_written += count;
        } else if (count < 0 && errno == EAGAIN) {
            m_notifier->setEnabled(true);
            m_deadline.start(idleDeadlineMs);
            return;
        } else if (count < 0 && errno == EINTR) {
            continue;
        } else {
            break; // the reader hung up
        }
    }
    m_notifier->setEnabled(false);
    m_deadline.stop();
    deleteLater();
}
