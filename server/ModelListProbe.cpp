#include "ModelListProbe.h"

#include "Upstream.h"

#include <QJsonDocument>
#include <QUrl>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <boost/asio/ssl.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/tcp_stream.hpp>
#include <boost/beast/http/empty_body.hpp>
#include <boost/beast/http/read.hpp>
#include <boost/beast/http/string_body.hpp>
#include <boost/beast/http/write.hpp>
#include <boost/beast/ssl/ssl_stream.hpp>
#include <memory>
#include <optional>

using namespace Qt::StringLiterals;
namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = boost::beast::http;
using tcp = asio::ip::tcp;

namespace {

constexpr std::uint64_t maxListBytes = 1024 * 1024;

struct Probe : std::enable_shared_from_this<Probe>
{
    Probe(asio::io_context &io, std::function<void(bool, const QString &)> done)
        : resolver(io)
        , deadline(io)
        , done(std::move(done))
    {
    }

    tcp::resolver resolver;
    asio::steady_timer deadline;
    std::optional<asio::ssl::context> tls;
    std::optional<beast::tcp_stream> plain;
    std::optional<beast::ssl_stream<beast::tcp_stream>> secure;
    http::request<http::empty_body> request;
    beast::flat_buffer buffer;
    http::response_parser<http::string_body> parser;
    std::function<void(bool, const QString &)> done;

    beast::tcp_stream &lowest() { return plain ? *plain : beast::get_lowest_layer(*secure); }

    void finish(bool ok, const QString &why)
    {
        if (!done)
            return;
        deadline.cancel();
        resolver.cancel();
        beast::error_code ignored;
        if (plain || secure)
            lowest().socket().close(ignored);
        const auto report = std::move(done);
        done = nullptr;
        report(ok, why);
    }

    void drop()
    {
        done = [](bool, const QString &) {};
        finish(false, {});
    }

    void sendAndRead()
    {
        auto onRead = [self = shared_from_this()](const beast::error_code &error, size_t) {
            if (error)
                return self->finish(
                    false, u"no model list: %1"_s.arg(QString::fromStdString(error.message())));
            const int status = self->parser.get().result_int();
            if (status != 200)
                return self->finish(false, u"model list answered HTTP %1"_s.arg(status));
            const QJsonDocument list
                = QJsonDocument::fromJson(QByteArray::fromStdString(self->parser.get().body()));
            self->finish(list.isObject(), list.isObject() ? QString() : u"model list is not JSON"_s);
        };
        auto onWritten = [self = shared_from_this(), onRead](const beast::error_code &error, size_t) {
            if (error)
                return self->finish(false, u"cannot send: %1"_s.arg(QString::fromStdString(error.message())));
            if (self->plain)
                http::async_read(*self->plain, self->buffer, self->parser, onRead);
            else
                http::async_read(*self->secure, self->buffer, self->parser, onRead);
        };
        if (plain)
            http::async_write(*plain, request, onWritten);
        else
            http::async_write(*secure, request, onWritten);
    }
};

} // namespace

std::function<void()> ModelListProbe::start(asio::io_context &io, const QString &baseUrl, const QString &key,
    std::chrono::milliseconds deadline, std::function<void(bool, const QString &)> done)
{
    auto probe = std::make_shared<Probe>(io, std::move(done));
    if (const QString problem = upstreamUrlProblem(baseUrl); !problem.isEmpty()) {
        asio::post(io, [probe, problem] { probe->finish(false, problem); });
        return [weak = std::weak_ptr<Probe>(probe)] {
            if (auto probe = weak.lock())
                probe->drop();
        };
    }
    const QUrl url(baseUrl);
    const bool https = url.scheme() == "https"_L1;
    QString target = url.path(QUrl::FullyEncoded);
    while (target.endsWith(u'/'))
        target.chop(1);
    target += "/models"_L1;
    if (url.hasQuery())
        target += u'?' + url.query(QUrl::FullyEncoded);
    probe->request = { http::verb::get, target.toStdString(), 11 };
    probe->request.set(
        http::field::host, url.adjusted(QUrl::RemoveUserInfo).authority(QUrl::FullyEncoded).toStdString());
    probe->request.set(http::field::connection, "close");
    if (!key.isEmpty())
        probe->request.set(http::field::authorization, "Bearer " + key.toStdString());
    probe->parser.body_limit(maxListBytes);
    const std::string host = url.host(QUrl::FullyEncoded).toStdString();
    if (https) {
        probe->tls.emplace(asio::ssl::context::tls_client);
        probe->tls->set_default_verify_paths();
        probe->tls->set_verify_mode(asio::ssl::verify_peer);
        probe->secure.emplace(io, *probe->tls);
    } else {
        probe->plain.emplace(io);
    }
    probe->deadline.expires_after(deadline);
    probe->deadline.async_wait([probe](const beast::error_code &error) {
        if (!error)
            probe->finish(false, u"no model list within the deadline"_s);
    });
    probe->resolver.async_resolve(host, std::to_string(url.port(https ? 443 : 80)),
        [probe, host](const beast::error_code &error, const tcp::resolver::results_type &endpoints) {
            if (error)
                return probe->finish(false, u"cannot resolve the model server's name"_s);
            probe->lowest().async_connect(
                endpoints, [probe, host](const beast::error_code &error, const tcp::endpoint &) {
                    if (error)
                        return probe->finish(false, u"connection refused or unreachable"_s);
                    if (!probe->secure)
                        return probe->sendAndRead();
                    SSL_set_tlsext_host_name(probe->secure->native_handle(), host.c_str());
                    probe->secure->set_verify_callback(asio::ssl::host_name_verification(host));
                    probe->secure->async_handshake(
                        asio::ssl::stream_base::client, [probe](const beast::error_code &error) {
                            if (error)
                                return probe->finish(false, u"no secure connection"_s);
                            probe->sendAndRead();
                        });
                });
        });
    return [weak = std::weak_ptr<Probe>(probe)] {
        if (auto probe = weak.lock())
            probe->drop();
    };
}
