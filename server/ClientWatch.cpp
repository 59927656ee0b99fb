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

std::vector<int> ClientWatch::connectedSockets(int localPort, int remotePort)
{
    std::vector<int> found;
    DIR *dir = opendir("/proc/self/fd");
    if (!dir)
        return found;
    while (const dirent *entry = readdir(dir)) {
        char *end = nullptr;
        const long fd = std::strtol(entry->d_name, &end, 10);
        if (end == entry->d_name || *end != '\0' || fd == dirfd(dir))
            continue;
        sockaddr_storage local {};
        sockaddr_storage peer {};
        socklen_t localLength = sizeof local;
        socklen_t peerLength = sizeof peer;
        if (getsockname(int(fd), reinterpret_cast<sockaddr *>(&local), &localLength) != 0
            || portOf(local) != localPort)
            continue;
        if (getpeername(int(fd), reinterpret_cast<sockaddr *>(&peer), &peerLength) != 0
            || (remotePort >= 0 && portOf(peer) != remotePort))
            continue;
        found.push_back(int(fd));
    }
    closedir(dir);
    return found;
}
