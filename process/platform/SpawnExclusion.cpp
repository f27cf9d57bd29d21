#include "process/platform/SpawnExclusion.h"

#include "common/platform/Platform.h"

#if !HELION_LINUX_CALLS
#include <mutex>
#endif

namespace corvid::process::macos::details {

#if HELION_LINUX_CALLS

SpawnExclusion::SpawnExclusion() = default;
SpawnExclusion::~SpawnExclusion() = default;

#else

namespace {
std::mutex& spawnMutex() {
    static std::mutex mutex;
    return mutex;
}
}  // namespace

SpawnExclusion::SpawnExclusion() {
    spawnMutex().lock();
}
SpawnExclusion::~SpawnExclusion() {
    spawnMutex().unlock();
}

#endif

}  // namespace corvid::process::macos::details
