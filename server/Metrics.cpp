#include "Metrics.h"

#include <cmath>

namespace {

const QList<double> latencyBounds { 0.005, 0.01, 0.025, 0.05, 0.1, 0.25, 0.5, 1, 2.5, 5, 10, 30, 60 };
const QList<double> durationBounds { 0.1, 0.25, 0.5, 1, 2.5, 5, 10, 30, 60, 120, 300 };

QByteArray number(double value)
{
    if (std::isinf(value))
        return "+Inf";
    return QByteArray::number(value, 'g', 12);
}

// Label values are token names, limit keys and upstream addresses; escaped all the same.
QByteArray label(const char *name, const QString &value)
{
    QByteArray escaped = value.toUtf8();
    escaped.replace('\\', "\\\\").replace('"', "\\\"").replace('\n', "\\n");
    return QByteArray(name) + "=\"" + escaped + '"';
}

void header(QByteArray &out, const char *name, const char *type, const char *help)
{
    out += QByteArray("# HELP ") + name + ' ' + help + "\n# TYPE " + name + ' ' + type + '\n';
}

} // namespace

Metrics::Histogram::Histogram(QList<double> bounds)
    : m_bounds(std::move(bounds))
    , m_counts(m_bounds.size() + 1, 0)
{
}

void Metrics::Histogram::observe(double value)
{
    qsizetype slot = 0;
    while (slot < m_bounds.size() && value > m_bounds[slot])
        ++slot;
    ++m_counts[slot];
    m_sum += value;
    ++m_count;
}

void Metrics::Histogram::write(QByteArray &out, const QByteArray &name, const QByteArray &labels) const
{
    const QByteArray prefix = labels.isEmpty() ? QByteArray() : labels + ',';
    quint64 cumulative = 0;
    for (qsizetype i = 0; i <= m_bounds.size(); ++i) {
        cumulative += m_counts[i];
        const double bound = i < m_bounds.size() ? m_bounds[i] : INFINITY;
        out += name + "_bucket{" + prefix + "le=\"" + number(bound) + "\"} " + QByteArray::number(cumulative)
            + '\n';
    }
    const QByteArray braces = labels.isEmpty() ? QByteArray() : '{' + labels + '}';
    out += name + "_sum" + braces + ' ' + number(m_sum) + '\n';
    out += name + "_count" + braces + ' ' + QByteArray::number(m_count) + '\n';
}

Metrics::Metrics()
    : m_firstFragment(latencyBounds)
    , m_duration(durationBounds)
{
}

void Metrics::request(const QString &token, const QString &outcome)
{
    ++m_requests[{ token, outcome }];
}

void Metrics::upstreamAnswered(const QString &upstream, double seconds)
{
    auto found = m_upstreamLatency.find(upstream);
    if (found == m_upstreamLatency.end())
        found = m_upstreamLatency.insert(upstream, Histogram(latencyBounds));
    found->observe(seconds);
}

void Metrics::limitRefused(const QString &limit)
{
    ++m_refusals[limit];
}

QByteArray Metrics::text(int openStreams) const
{
    QByteArray out;
    header(out, "tessary_server_requests_total", "counter", "Rewrite requests by token name and outcome.");
    for (auto it = m_requests.cbegin(); it != m_requests.cend(); ++it)
        out += "tessary_server_requests_total{" + label("token", it.key().first) + ','
            + label("outcome", it.key().second) + "} " + QByteArray::number(it.value()) + '\n';
    header(out, "tessary_server_fragments_relayed_total", "counter", "Fragments of text relayed to clients.");
    out += "tessary_server_fragments_relayed_total " + QByteArray::number(m_fragments) + '\n';
    header(out, "tessary_server_time_to_first_fragment_seconds", "histogram",
        "From a rewrite's request to its first fragment.");
    m_firstFragment.write(out, "tessary_server_time_to_first_fragment_seconds", {});
    header(out, "tessary_server_stream_duration_seconds", "histogram", "Whole rewrite streams.");
    m_duration.write(out, "tessary_server_stream_duration_seconds", {});
    header(out, "tessary_server_upstream_latency_seconds", "histogram",
        "From a request to a model server to its first fragment or its failure.");
    for (auto it = m_upstreamLatency.cbegin(); it != m_upstreamLatency.cend(); ++it)
        it.value().write(out, "tessary_server_upstream_latency_seconds", label("upstream", it.key()));
    header(out, "tessary_server_streams_open", "gauge", "Rewrite streams open now.");
    out += "tessary_server_streams_open " + QByteArray::number(openStreams) + '\n';
    header(out, "tessary_server_limit_refusals_total", "counter", "Requests refused by a limit, by limit.");
    for (auto it = m_refusals.cbegin(); it != m_refusals.cend(); ++it)
        out += "tessary_server_limit_refusals_total{" + label("limit", it.key()) + "} "
            + QByteArray::number(it.value()) + '\n';
    return out;
}
