#pragma once

#include <Orlavex/server/SimulationServer.h>

#include <atomic>
#include <functional>
#include <future>
#include <thread>

/// Runs a simulation server script on a thread of its own: the server listens
/// on an ephemeral loopback port, waits for one front-end and runs the script.
/// Every read of the server has a time limit, so a script never hangs a test.
/// The wait for the front-end is long (a loaded machine may be slow to
/// connect) and ends early when the ServerThread is destroyed unused.
class ServerThread {
public:
    using Script = std::function<void(SimulationServer&)>;
    /// `port` 0 picks a free one; another listens there (a server restarted
    /// where a front-end will look for it again).
    explicit ServerThread(Script script, int readTimeoutMs = 20000, quint16 port = 0);
    ~ServerThread();

    /// The port the server listens on (waits until it listens).
    quint16 port();
    /// True once the script has returned.
    bool finished() const { return m_finished.load(); }
    /// Waits until the script has returned; false when it is still running after `ms`.
    bool wait(int ms);

private:
    Script m_script;
    int m_timeout;
    std::promise<quint16> m_portPromise;
    std::shared_future<quint16> m_port;
    std::atomic<bool> m_finished{false};
    std::atomic<bool> m_abandoned{false};
    std::promise<void> m_donePromise;
    std::future<void> m_done;
    std::thread m_thread;
};
