#include "RenderRelay.h"

#include <Orlavex/link/CommThread.h>

#include <chrono>

namespace Orlavex {
namespace detail {

RenderRelay::RenderRelay(CommThread* link) : m_link(link), m_thread([this] { loop(); }) {}

RenderRelay::~RenderRelay() {
    {
        std::lock_guard<std::mutex> guard(m_lock);
        m_quit = true;
    }
    m_changed.notify_all();
    // A pass under way ends when the GUI thread serves it, or when a window
    // that goes away drops it (which releases the blocking emission).
    m_thread.join();
}

void RenderRelay::start(const CycleStats& stats) {
    {
        std::lock_guard<std::mutex> guard(m_lock);
        m_stats = stats;
        m_requested = true;
    }
    m_changed.notify_all();
}

void RenderRelay::wait() {
    std::unique_lock<std::mutex> guard(m_lock);
    m_changed.wait(guard, [&] { return !m_requested; });
}

void RenderRelay::loop() {
    std::unique_lock<std::mutex> guard(m_lock);
    for (;;) {
        m_changed.wait(guard, [&] { return m_requested || m_quit; });
        if (!m_requested)
            return;
        CycleStats stats = m_stats;
        guard.unlock();
        const auto start = std::chrono::steady_clock::now();
        emit m_link->dataUpdated();
        stats.renderMs =
            std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
                .count();
        emit m_link->cycleFinished(stats);
        guard.lock();
        m_requested = false;
        m_changed.notify_all();
    }
}

} // namespace detail
} // namespace Orlavex
