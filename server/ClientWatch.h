#pragma once

#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <thread>
#include <vector>

// Notices at once when a client hangs up while its rewrite is waiting on the model,
// so the upstream request can be dropped instead of running on for nobody.
// One thread polls every watched socket for the peer's hang-up.
class ClientWatch
{
public:
    ClientWatch();
    ~ClientWatch();

    ClientWatch(const ClientWatch &) = delete;
    ClientWatch &operator=(const ClientWatch &) = delete;

    // `onHangUp` runs on the watch thread, at most once. Returns an id for remove().
    int add(int socket, std::function<void()> onHangUp);
    // After it returns, the callback of `id` is not running and will not run.
    void remove(int id);

    // The sockets of this process connected from local port `localPort` (to remote port
    // `remotePort`, or to any when it is -1). The HTTP library hands its handlers neither
    // their socket nor a way to end idle connections.
    static std::vector<int> connectedSockets(int localPort, int remotePort = -1);

private:
    void loop();

    struct Entry
    {
        int socket;
        std::function<void()> onHangUp;
    };
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::map<int, Entry> m_entries;
    int m_nextId = 1;
    bool m_stopping = false;
    std::thread m_thread;
};
