#pragma once

#include <QList>
#include <QObject>

#include <memory>
#include <optional>
#include <tuple>

class QSocketNotifier;
struct wl_display;
struct wl_interface;
struct wl_registry;

// A global a backend binds: its interface, the highest version the backend speaks, and
// how to let go of it again.
template<typename Proxy> struct WantedGlobal
{
    const wl_interface *interface;
    quint32 maxVersion;
    void (*destroy)(Proxy *);
};

// A connection of our own to the Wayland compositor, beside Qt's: protocols Qt does not
// speak are spoken here. Its events are dispatched from the Qt event loop.
class WaylandConnection : public QObject
{
    Q_OBJECT
public:
    struct Global
    {
        quint32 name = 0;
        QByteArray interface;
        quint32 version = 0;
    };

    // nullptr when there is no Wayland display to connect to.
    static std::unique_ptr<WaylandConnection> open();
    ~WaylandConnection() override;

    // The globals the compositor announced when we connected.
    const QList<Global> &globals() const { return m_globals; }
    // Binds the first global of that interface, at most at maxVersion; nullptr without one.
    void *bind(const wl_interface *interface, quint32 maxVersion);

    // Binds every global asked for, in order. When the compositor lacks one, the others are
    // let go again and there are none: a backend has all it works with or nothing.
    template<typename... Proxies>
    std::optional<std::tuple<Proxies *...>> bindAll(const WantedGlobal<Proxies> &...wanted)
    {
        std::tuple<Proxies *...> bound { static_cast<Proxies *>(
            bind(wanted.interface, wanted.maxVersion))... };
        if (std::apply([](auto *...proxy) { return (proxy && ...); }, bound))
            return bound;
        std::apply(
            [&wanted...](Proxies *...proxy) { ((proxy ? wanted.destroy(proxy) : void()), ...); }, bound);
        return std::nullopt;
    }

    wl_display *display() const { return m_display; }
    // Sends the requests made so far. Call it after each batch of requests.
    void flush();

private:
    explicit WaylandConnection(wl_display *display);
    void dispatch();
    bool broken();

    wl_display *m_display;
    wl_registry *m_registry = nullptr;
    QList<Global> m_globals;
    QSocketNotifier *m_readable = nullptr;
    QSocketNotifier *m_writable = nullptr;
};
