#pragma once

#include <Orlavex/orlavex_export.h>

#include <mutex>

namespace Orlavex {

/// Keeps the link thread's changes to the scene and the GUI thread's renders
/// apart.
///
/// The link thread holds it while it applies one record to a scene object;
/// canvases hold it while they render, whether the main window's render pass
/// or the user's own camera drag asked for the render. It is never held
/// across a wait for the other thread, so it cannot deadlock with the
/// blocking hand-overs of the exchange cycle. Recursive, since a render may
/// start inside another one on the same thread.
class ORLAVEX_EXPORT SceneLock {
public:
    SceneLock() { mutex().lock(); }
    ~SceneLock() { mutex().unlock(); }
    SceneLock(const SceneLock&) = delete;
    SceneLock& operator=(const SceneLock&) = delete;

    static std::recursive_mutex& mutex();
};

} // namespace Orlavex
