#include "ClientWatch.h"

#include <arpa/inet.h>
#include <cstdlib>
#include <dirent.h>
#include <netinet/in.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>
#include <vector>

namespace {

int portOf(const sockaddr_storage &address)
{
    if (address.ss_family == AF_INET)
        return ntohs(reinterpret_cast<const sockaddr_in &>(address).sin_port);
    if (address.ss_family == AF_INET6)
        return ntohs(reinterpret_cast<const sockaddr_in6 &>(address).sin6_port);
    return -1;
}

} // namespace

ClientWatch::ClientWatch()
    : m_epoll(epoll_create1(EPOLL_CLOEXEC))
    , m_wake(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK))
{
    epoll_event event {};
    event.events = EPOLLIN;
    event.data.u64 = 0; // ids start at 1: 0 is the wake-up
    epoll_ctl(m_epoll, EPOLL_CTL_ADD, m_wake, &event);
    m_thread = std::thread([this] { loop(); });
}

ClientWatch::~ClientWatch()
{
    const uint64_t one = 1;
    [[maybe_unused]] const auto written = write(m_wake, &one, sizeof one);
    m_thread.join();
    close(m_wake);
    close(m_epoll);
}

int ClientWatch::add(int socket, std::function<void()> onHangUp)
{
    std::lock_guard lock(m_mutex);
    const int id = m_nextId++;
    epoll_event event {};
    event.events = EPOLLRDHUP;
    event.data.u64 = uint64_t(id);
    if (epoll_ctl(m_epoll, EPOLL_CTL_ADD, socket, &event) != 0)
        return 0;
    m_entries.emplace(id, Entry { socket, std::move(onHangUp) });
    return id;
}

void ClientWatch::remove(int id)
{
    std::lock_guard lock(m_mutex);
    const auto it = m_entries.find(id);
    if (it == m_entries.end())
        return;
    epoll_ctl(m_epoll, EPOLL_CTL_DEL, it->second.socket, nullptr);
    m_entries.erase(it);
}

void ClientWatch::loop()
{
    epoll_event events[64];
    for (;;) {
        const int count = epoll_wait(m_epoll, events, 64, -1);
        std::lock_guard lock(m_mutex);
        for (int i = 0; i < count; ++i) {
            if (events[i].data.u64 == 0)
                return;
            // An entry removed after epoll_wait returned is simply no longer there.
            const auto it = m_entries.find(int(events[i].data.u64));
            if (it == m_entries.end())
                continue;
            // Called under the lock, so remove() waits for it to finish.
            it->second.onHangUp();
            epoll_ctl(m_epoll, EPOLL_CTL_DEL, it->second.socket, nullptr);
            m_entries.erase(it);
        }
    }
}

namespace {

// The local and remote port of a connected socket; false for anything else.
bool portsOf(int socket, int &localPort, int &remotePort)
{
    sockaddr_storage local {};
    sockaddr_storage peer {};
    socklen_t localLength = sizeof local;
    socklen_t peerLength = sizeof peer;
    if (getsockname(socket, reinterpret_cast<sockaddr *>(&local), &localLength) != 0
        || getpeername(socket, reinterpret_cast<sockaddr *>(&peer), &peerLength) != 0)
        return false;
    localPort = portOf(local);
    remotePort = portOf(peer);
    return true;
}

// Every socket of this process with a peer, by (local port, remote port).
template<typename Visit> void forEachConnectedSocket(Visit visit)
{
    DIR *dir = opendir("/proc/self/fd");
    if (!dir)
        return;
    while (const dirent *entry = readdir(dir)) {
        char *end = nullptr;
        const long fd = std::strtol(entry->d_name, &end, 10);
        if (end == entry->d_name || *end != '\0' || fd == dirfd(dir))
            continue;
        int local = -1;
        int remote = -1;
        if (portsOf(int(fd), local, remote))
            visit(int(fd), local, remote);
    }
    closedir(dir);
}

} // namespace

std::vector<int> ClientWatch::connectedSockets(int localPort, int remotePort)
{
    std::vector<int> found;
    forEachConnectedSocket([&](int socket, int local, int remote) {
        if (local == localPort && (remotePort < 0 || remote == remotePort))
            found.push_back(socket);
    });
    return found;
}

int ClientWatch::socketOf(int localPort, int remotePort)
{
    std::lock_guard lock(m_socketsMutex);
    const auto key = std::make_pair(localPort, remotePort);
    if (const auto it = m_knownSockets.find(key); it != m_knownSockets.end()) {
        // The descriptor may have been reused by another connection since the scan.
        int local = -1;
        int remote = -1;
        if (portsOf(it->second, local, remote) && local == localPort && remote == remotePort)
            return it->second;
    }
    m_knownSockets.clear();
    forEachConnectedSocket([this](int socket, int local, int remote) {
        m_knownSockets[{ local, remote }] = socket;
    });
    const auto it = m_knownSockets.find(key);
    return it == m_knownSockets.end() ? -1 : it->second;
}
