#include "SceneLock.h"

namespace Orlavex {

std::recursive_mutex& SceneLock::mutex() {
    static std::recursive_mutex lock;
    return lock;
}

} // namespace Orlavex
