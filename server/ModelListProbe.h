#pragma once

#include <QString>

#include <chrono>
#include <functional>

namespace boost::asio {
class io_context;
}

// Asks an OpenAI-compatible server for its model list (GET <base>/models) on the server's
// event loop: whether it answers at all is what readiness means.
namespace ModelListProbe {

// `done` runs once on `io`'s thread: true when a 200 with a JSON object came within
// `deadline`, else false and why. The function returned, called on `io`'s thread, drops
// the probe without calling `done`.
std::function<void()> start(boost::asio::io_context &io, const QString &baseUrl, const QString &key,
    std::chrono::milliseconds deadline, std::function<void(bool, const QString &)> done);

} // namespace ModelListProbe
