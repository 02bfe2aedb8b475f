#include "SceneLock.h"

std::recursive_mutex& SceneLock::mutex() {
    static std::recursive_mutex lock;
    return lock;
}
