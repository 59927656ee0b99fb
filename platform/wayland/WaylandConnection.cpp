#include "WaylandConnection.h"

#include <QLoggingCategory>
#include <QSocketNotifier>

#include <cerrno>
#include <cstring>
#include <wayland-client.h>

namespace {

Q_LOGGING_CATEGORY(lcWayland, "tessary.platform.wayland")

void announce(void *data, wl_registry *, uint32_t name, const char *interface, uint32_t version)
{
    static_cast<QList<WaylandConnection::Global> *>(data)->append({ name, QByteArray(interface), version });
}

void withdraw(void *data, wl_registry *, uint32_t name)
{
    static_cast<QList<WaylandConnection::Global> *>(data)->removeIf(
        [name](const WaylandConnection::Global &global) { return global.name == name; });
}

const wl_registry_listener registryListener { announce, withdraw };

} // namespace

std::unique_ptr<WaylandConnection> WaylandConnection::open()
{
    // Without this, libwayland would try a default socket name of its own.
    if (qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY"))
        return nullptr;
    wl_display *display = wl_display_connect(nullptr);
    if (!display)
        return nullptr;
    std::unique_ptr<WaylandConnection> connection(new WaylandConnection(display));
    connection->m_registry = wl_display_get_registry(display);
    wl_registry_add_listener(connection->m_registry, &registryListener, &connection->m_globals);
    // The one round trip: the globals must be known before anything can be bound.
    if (wl_display_roundtrip(display) < 0)
        return nullptr;

    connection->m_readable
        = new QSocketNotifier(wl_display_get_fd(display), QSocketNotifier::Read, connection.get());
    connect(
        connection->m_readable, &QSocketNotifier::activated, connection.get(), &WaylandConnection::dispatch);
    connection->m_writable
        = new QSocketNotifier(wl_display_get_fd(display), QSocketNotifier::Write, connection.get());
    connection->m_writable->setEnabled(false);
    connect(connection->m_writable, &QSocketNotifier::activated, connection.get(), &WaylandConnection::flush);
    return connection;
}

WaylandConnection::WaylandConnection(wl_display *display)
    : m_display(display)
{
}

WaylandConnection::~WaylandConnection()
{
    delete m_readable;
    delete m_writable;
    if (m_registry)
        wl_registry_destroy(m_registry);
    wl_display_disconnect(m_display);
}

void *WaylandConnection::bind(const wl_interface *interface, quint32 maxVersion)
{
    for (const Global &global : std::as_const(m_globals)) {
        if (global.interface == interface->name)
            return wl_registry_bind(m_registry, global.name, interface, qMin(global.version, maxVersion));
    }
    return nullptr;
}

void WaylandConnection::flush()
{
    if (broken())
        return;
    // A full socket takes the rest once the compositor has read some.
    const bool full = wl_display_flush(m_display) < 0 && errno == EAGAIN;
    m_writable->setEnabled(full);
}

void WaylandConnection::dispatch()
{
    if (broken())
        return;
    while (wl_display_prepare_read(m_display) != 0)
        wl_display_dispatch_pending(m_display);
    // The socket is readable: reading does not wait.
    wl_display_read_events(m_display);
    wl_display_dispatch_pending(m_display);
    flush();
}

bool WaylandConnection::broken()
{
    const int error = wl_display_get_error(m_display);
    if (error == 0)
        return false;
    if (m_readable->isEnabled()) {
        qCWarning(lcWayland) << "lost the connection to the compositor:" << std::strerror(error);
        m_readable->setEnabled(false);
        m_writable->setEnabled(false);
    }
    return true;
}
