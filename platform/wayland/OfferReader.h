#pragma once

#include <QByteArray>
#include <QObject>
#include <QTimer>

#include <functional>
#include <optional>

class QSocketNotifier;
class WaylandConnection;
struct zwlr_data_control_offer_v1;

// Reads one format of the clipboard from the program that holds it, through a pipe the
// event loop watches. A holder that stops sending is given up on: the answer is nullopt.
class OfferReader : public QObject
{
    Q_OBJECT
public:
    using Done = std::function<void(std::optional<QByteArray>)>;

    // done is called once, later, on this thread; with nullopt at once when no pipe can be had.
    static void read(
        WaylandConnection &connection, zwlr_data_control_offer_v1 *offer, const QString &mimeType, Done done);

    static constexpr int idleDeadlineMs = 1000;

private:
    OfferReader(int fd, Done done);
    ~OfferReader() override;
    void readAvailable();
    void finish(std::optional<QByteArray> result);

    int m_fd;
    Done m_done;
    QByteArray m_bytes;
    QSocketNotifier *m_notifier;
    QTimer m_deadline;
};
