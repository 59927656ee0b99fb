#pragma once

#include <QByteArray>
#include <QList>
#include <QMap>
#include <QString>

#include <utility>

// The server's counters, in the Prometheus text format (0.0.4). Names and labels only:
// never a word a client sent. Lives on the server's event loop; not for other threads.
class Metrics
{
public:
    class Histogram
    {
    public:
        explicit Histogram(QList<double> bounds);
        void observe(double value);
        void write(QByteArray &out, const QByteArray &name, const QByteArray &labels) const;

    private:
        QList<double> m_bounds;
        QList<quint64> m_counts; // per bound, not cumulative; one more for +Inf
        double m_sum = 0;
        quint64 m_count = 0;
    };

    Metrics();

    void request(const QString &token, const QString &outcome);
    void fragmentRelayed() { ++m_fragments; }
    void firstFragment(double seconds) { m_firstFragment.observe(seconds); }
    void streamEnded(double seconds) { m_duration.observe(seconds); }
    void upstreamAnswered(const QString &upstream, double seconds);
    void limitRefused(const QString &limit);

    QByteArray text(int openStreams) const;

private:
    QMap<std::pair<QString, QString>, quint64> m_requests;
    quint64 m_fragments = 0;
    Histogram m_firstFragment;
    Histogram m_duration;
    QMap<QString, Histogram> m_upstreamLatency;
    QMap<QString, quint64> m_refusals;
};
