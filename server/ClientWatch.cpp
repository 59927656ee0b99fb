#include "ClientWatch.h"

#include <arpa/inet.h>
#include <cstdlib>
#include <dirent.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
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
    : m_thread([this] { loop(); })
{
}

ClientWatch::~ClientWatch()
{
    {
        std::lock_guard lock(m_mutex);
        m_stopping = true;
    }
    m_changed.notify_all();
    m_thread.join();
}

int ClientWatch::add(int socket, std::function<void()> onHangUp)
{
    int id;
    {
        std::lock_guard lock(m_mutex);
        id = m_nextId++;
        m_entries.emplace(id, Entry { socket, std::move(onHangUp) });
    }
    m_changed.notify_all();
    return id;
}

void ClientWatch::remove(int id)
{
    std::lock_guard lock(m_mutex);
    m_entries.erase(id);
}

void ClientWatch::loop()
{
    std::vector<pollfd> fds;
    std::vector<int> ids;
    for (;;) {
        {
            std::unique_lock lock(m_mutex);
            m_changed.wait(lock, [this] { return m_stopping || !m_entries.empty(); });
            if (m_stopping)
                return;
            fds.clear();
            ids.clear();
            for (const auto &[id, entry] : m_entries) {
                fds.push_back({ entry.socket, POLLRDHUP, 0 });
                ids.push_back(id);
            }
        }
        // A short timeout picks up sockets added meanwhile; hang-ups wake us at once.
        if (poll(fds.data(), fds.size(), 20) <= 0)
            continue;
        std::lock_guard lock(m_mutex);
        for (size_t i = 0; i < fds.size(); ++i) {
            if (!(fds[i].revents & (POLLRDHUP | POLLHUP | POLLERR)))
                continue;
            const auto it = m_entries.find(ids[i]);
            if (it == m_entries.end())
                continue;
            // Called under the lock, so remove() waits for it to finish.
            it->second.onHangUp();
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
