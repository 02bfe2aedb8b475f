#pragma once

#include <Orlavex/link/CycleStats.h>

#include <condition_variable>
#include <mutex>
#include <thread>

namespace Orlavex {

class CommThread;

namespace detail {

/// Asks for the render pass without holding up the link thread, for
/// overlapped cycles.
///
/// The render pass is the main window's blocking-queued answer to
/// `CommThread::dataUpdated()`: whoever emits the signal waits until the pass
/// has returned. This relay emits it from a thread of its own, so the link
/// thread can go on with the next exchange meanwhile and wait for the pass
/// only before it applies that exchange's records. The connection and the
/// pass itself are exactly those of a plain cycle.
class RenderRelay {
public:
    explicit RenderRelay(CommThread* link);
    ~RenderRelay();
    RenderRelay(const RenderRelay&) = delete;
    RenderRelay& operator=(const RenderRelay&) = delete;

    /// Starts a render pass; `stats` (its render time filled in) is
    /// published with `cycleFinished` once the pass has returned.
    void start(const CycleStats& stats);
    /// Waits until the pass last started has returned (at once when none runs).
    void wait();

private:
    void loop();

    CommThread* m_link;
    std::mutex m_lock;
    std::condition_variable m_changed;
    bool m_requested = false;
    bool m_quit = false;
    CycleStats m_stats;
    std::thread m_thread;
};

} // namespace detail
} // namespace Orlavex
