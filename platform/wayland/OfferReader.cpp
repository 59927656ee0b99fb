#include "OfferReader.h"

#include "WaylandConnection.h"
#include "wlr-data-control-unstable-v1-client-protocol.h"

#include <QSocketNotifier>

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

void OfferReader::read(
    WaylandConnection &connection, zwlr_data_control_offer_v1 *offer, const QString &mimeType, Done done)
{
    int fds[2];
    if (pipe2(fds, O_CLOEXEC) != 0) {
        done(std::nullopt);
        return;
    }
    // Only our end reads without waiting; the holder writes as it always does.
    fcntl(fds[0], F_SETFL, fcntl(fds[0], F_GETFL) | O_NONBLOCK);
    zwlr_data_control_offer_v1_receive(offer, mimeType.toUtf8().constData(), fds[1]);
    connection.flush();
    // The request carries its own copy of the write end: ours must go, or no end of file comes.
    close(fds[1]);
    new OfferReader(fds[0], std::move(done));
}

OfferReader::OfferReader(int fd, Done done)
    : m_fd(fd)
    , m_done(std::move(done))
    , m_notifier(new QSocketNotifier(fd, QSocketNotifier::Read, this))
{
    connect(m_notifier, &QSocketNotifier::activated, this, &OfferReader::readAvailable);
    m_deadline.setSingleShot(true);
    connect(&m_deadline, &QTimer::timeout, this, [this] { finish(std::nullopt); });
    m_deadline.start(idleDeadlineMs);
}

OfferReader::~OfferReader()
{
    close(m_fd);
}

void OfferReader::readAvailable()
{
    char buffer[16384];
    for (;;) {
        const ssize_t count = ::read(m_fd, buffer, sizeof buffer);
        if (count > 0) {
            m_bytes.append(buffer, count);
            m_deadline.start(idleDeadlineMs);
        } else if (count == 0) {
            finish(m_bytes);
            return;
        } else if (errno == EAGAIN) {
            return;
        } else if (errno != EINTR) {
            finish(std::nullopt);
            return;
        }
    }
}

void OfferReader::finish(std::optional<QByteArray> result)
{
    m_notifier->setEnabled(false);
    m_deadline.stop();
    deleteLater();
    if (m_done)
        std::exchange(m_done, {})(std::move(result));
}
