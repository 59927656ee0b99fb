#include "FixtureUpstream.h"

#include <QJsonArray>
#include <QJsonDocument>

#include <csignal>
#include <httplib.h>
#include <sys/socket.h>

using namespace Qt::StringLiterals;

namespace {

QByteArray contentEvent(const QString &text)
{
    const QJsonObject event {
        { "choices"_L1,
            QJsonArray { QJsonObject { { "delta"_L1, QJsonObject { { "content"_L1, text } } } } } },
    };
    return "data: " + QJsonDocument(event).toJson(QJsonDocument::Compact) + "\n\n";
}

} // namespace

FixtureUpstream::FixtureUpstream(int threads)
    : m_server(std::make_unique<httplib::Server>())
{
    std::signal(SIGPIPE, SIG_IGN);
    m_server->new_task_queue = [threads] { return new httplib::ThreadPool(size_t(threads)); };
    m_server->set_tcp_nodelay(true);
    // Readiness is whether the model server lists its models.
    m_server->Get("/v1/models", [](const httplib::Request &, httplib::Response &response) {
        response.set_content(
            R"({"object":"list","data":[{"id":"tiny-model","object":"model"}]})", "application/json");
    });
    m_server->Post(
        "/v1/chat/completions", [this](const httplib::Request &request, httplib::Response &response) {
            UpstreamScript script;
            {
                std::lock_guard lock(m_mutex);
                QString target = QString::fromStdString(request.path);
                if (!request.params.empty()) {
                    QStringList query;
                    for (const auto &[name, value] : request.params)
                        query << QString::fromStdString(name + '=' + value);
                    target += u'?' + query.join(u'&');
                }
                m_requests.append({ QString::fromStdString(request.get_header_value("Authorization")), target,
                    QJsonDocument::fromJson(QByteArray::fromStdString(request.body)).object() });
                script = m_script;
            }
            response.status = script.status;
            for (int i = 0; i < script.extraHeaders; ++i)
                response.set_header("X-Filler-" + std::to_string(i), std::string(40, 'f'));
            if (!script.wholeBody.isEmpty()) {
                response.set_content(script.wholeBody.toStdString(), "application/json");
                ++m_finished;
                return;
            }
            response.set_chunked_content_provider(
                "text/event-stream", [this, script](size_t, httplib::DataSink &sink) {
                    // False, and counted, when the reader has gone.
                    const auto send = [this, &sink](const QByteArray &bytes) {
                        const bool written = sink.write(bytes.constData(), size_t(bytes.size()));
                        m_abandoned += written ? 0 : 1;
                        return written;
                    };
                    for (qsizetype at = 0; at < script.rawStream.size(); at += script.pieceSize) {
                        if (!send(script.rawStream.mid(at, script.pieceSize)))
                            return false;
                    }
                    if (!script.rawStream.isEmpty()) {
                        ++m_finished;
                        sink.done();
                        return true;
                    }
                    const int count
                        = script.stampFragments ? script.fragmentCount : int(script.fragments.size());
                    for (int i = 0; i < count; ++i) {
                        if (i > 0 && script.interval.count() > 0)
                            std::this_thread::sleep_for(script.interval);
                        if (i == script.stallAfter) {
                            // Comment lines every few ms find out when the reader has gone.
                            while (!m_released) {
                                if (!send(":\n"))
                                    return false;
                                std::this_thread::sleep_for(std::chrono::milliseconds(5));
                            }
                        }
                        const QString text = script.stampFragments
                            ? QString::number(std::chrono::steady_clock::now().time_since_epoch().count())
                            : script.fragments.at(i);
                        if (!send(contentEvent(text)))
                            return false;
                    }
                    if (!script.errorEvent.isEmpty() && !send("data: " + script.errorEvent + "\n\n"))
                        return false;
                    if (script.sendDone && !send("data: [DONE]\n\n"))
                        return false;
                    ++m_finished;
                    sink.done();
                    return true;
                });
        });
}

FixtureUpstream::~FixtureUpstream()
{
    m_released = true;
    m_server->stop();
    if (m_thread.joinable())
        m_thread.join();
}

bool FixtureUpstream::start()
{
    int listenSocket = -1;
    m_server->set_socket_options([&listenSocket](socket_t socket) {
        httplib::default_socket_options(socket);
        listenSocket = socket;
    });
    m_port = m_server->bind_to_any_port("127.0.0.1");
    if (m_port <= 0)
        return false;
    ::listen(listenSocket, SOMAXCONN); // room for a burst of connections (the library asks for 5)
    m_thread = std::thread([this] { m_server->listen_after_bind(); });
    return true;
}

QString FixtureUpstream::baseUrl() const
{
    return u"http://127.0.0.1:%1/v1"_s.arg(m_port);
}

void FixtureUpstream::setScript(const UpstreamScript &script)
{
    std::lock_guard lock(m_mutex);
    m_script = script;
    m_released = false;
}

void FixtureUpstream::release()
{
    m_released = true;
}

QList<UpstreamRequest> FixtureUpstream::requests() const
{
    std::lock_guard lock(m_mutex);
    return m_requests;
}
