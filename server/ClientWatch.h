#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <thread>
#include <utility>
#include <vector>

// Notices at once when a client hangs up while its rewrite is waiting on the model,
// so the upstream request can be dropped instead of running on for nobody.
// One thread sleeps in epoll until some watched peer hangs up.
class ClientWatch
{
public:
    ClientWatch();
    ~ClientWatch();

    ClientWatch(const ClientWatch &) = delete;
    ClientWatch &operator=(const ClientWatch &) = delete;

    // `onHangUp` runs on the watch thread, at most once. Returns an id for remove(), or 0
    // when the socket cannot be watched.
    int add(int socket, std::function<void()> onHangUp);
    // After it returns, the callback of `id` is not running and will not run.
    void remove(int id);

    // The sockets of this process connected from local port `localPort` (to remote port
    // `remotePort`, or to any when it is -1). The HTTP library hands its handlers neither
    // their socket nor a way to end idle connections.
    static std::vector<int> connectedSockets(int localPort, int remotePort = -1);

    // connectedSockets(localPort, remotePort) for one connection, remembering what one
    // scan of the descriptors found so that a burst of new clients costs one scan, not one each.
    int socketOf(int localPort, int remotePort);

private:
    void loop();

    struct Entry
    {
        int socket;
        std::function<void()> onHangUp;
    };
    int m_epoll;
    int m_wake; // eventfd that ends the thread
    std::mutex m_mutex;
    std::map<int, Entry> m_entries;
    int m_nextId = 1;
    std::mutex m_socketsMutex;
    std::map<std::pair<int, int>, int> m_knownSockets; // (local port, remote port) -> descriptor
    std::thread m_thread;
};
