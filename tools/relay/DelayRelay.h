#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

namespace Orlavex {

/// A TCP relay on the loopback interface that holds every byte back for a
/// fixed one-way delay, so that a front-end and a simulation server on one
/// machine see the round-trip time of a network between them.
///
/// It listens on 127.0.0.1, accepts one front-end, connects to the server's
/// port and forwards bytes both ways. Each chunk read from one side is written
/// to the other `delay` after it was read, in order; the relay adds no other
/// wait (TCP_NODELAY on its sockets, precise timed waits). When one side
/// closes its half, the other side's half is closed once the bytes still held
/// have gone out; a reset on either side ends the session at once.
///
/// Plain POSIX sockets and one thread: it needs no event loop and can sit
/// inside a test or benchmark process beside the Qt objects it connects.
class DelayRelay {
public:
    /// `serverPort`: where the simulation server listens on 127.0.0.1.
    /// `listenPort`: 0 picks a free port (see `port`).
    DelayRelay(uint16_t serverPort, double delayMs, uint16_t listenPort = 0);
    /// Ends the session (see `stop`).
    ~DelayRelay();
    DelayRelay(const DelayRelay&) = delete;
    DelayRelay& operator=(const DelayRelay&) = delete;

    /// Listens and starts the relay thread; false (see `errorString`) when
    /// the port cannot be had.
    bool start();
    /// The port the front-end connects to (valid after `start`).
    uint16_t port() const { return m_port; }
    /// Closes every socket of the relay and waits for its thread: prompt
    /// whatever the relay is doing, bytes still held are dropped.
    void stop();
    /// Waits until the session has ended (both sides closed, a reset, or a
    /// failed connect to the server); -1 waits for ever. True when it has.
    bool wait(int msecs = -1);
    bool isFinished() const { return m_finished.load(); }

    double delayMs() const { return m_delayNs * 1e-6; }
    /// Bytes forwarded so far, front-end to server and server to front-end.
    uint64_t bytesToServer() const { return m_toServer.load(); }
    uint64_t bytesToFrontEnd() const { return m_toFrontEnd.load(); }
    /// What went wrong, if anything, in words.
    std::string errorString() const;

    /// Faults a network may inflict: both sides see a close, both see a
    /// reset, or nothing more passes either way while both stay open.
    enum class Fault { None, Close, Reset, Silent };
    /// Injects `fault` once the front-end has sent `afterCycles` data
    /// messages and starts the next: the cycle after `afterCycles` is cut
    /// short. Set before `start`.
    void setFault(Fault fault, uint64_t afterCycles) {
        m_fault = fault;
        m_faultAfter = afterCycles;
    }
    /// True once the fault has been injected (`wait` returns then too).
    bool hasFaulted() const { return m_faulted.load(); }
    /// Data messages the front-end has sent so far.
    uint64_t cycles() const { return m_cycles.load(); }

private:
    void run();
    void fail(const std::string& why);

    uint16_t m_serverPort;
    uint16_t m_listenPort;
    uint16_t m_port = 0;
    int64_t m_delayNs;
    int m_listenFd = -1;
    int m_wakeFds[2] = {-1, -1}; ///< a pipe: a byte in it asks the thread to end
    std::thread m_thread;
    std::atomic<bool> m_finished{false};
    Fault m_fault = Fault::None;
    uint64_t m_faultAfter = 0;
    std::atomic<bool> m_faulted{false};
    std::atomic<uint64_t> m_cycles{0};
    std::atomic<uint64_t> m_toServer{0}, m_toFrontEnd{0};
    mutable std::mutex m_lock; ///< guards m_error and the end-of-session wait
    std::condition_variable m_ended;
    std::string m_error;
};

} // namespace Orlavex
