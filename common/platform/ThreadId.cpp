#include "common/platform/ThreadId.h"

#include "common/platform/Platform.h"

#if HELION_LINUX_CALLS
#include <sys/syscall.h>
#include <unistd.h>
#elif defined(__APPLE__)
#include <pthread.h>
#else
#include <atomic>
#endif

namespace corvid::platform {

#if HELION_LINUX_CALLS

std::uint64_t currentThreadId() {
    return static_cast<std::uint64_t>(::syscall(SYS_gettid));
}

#elif defined(__APPLE__)

std::uint64_t currentThreadId() {
    std::uint64_t id = 0;
    pthread_threadid_np(nullptr, &id);
    return id;
}

#else

// POSIX has no printable thread id (pthread_t is opaque): number threads in order of first use.
std::uint64_t currentThreadId() {
    static std::atomic<std::uint64_t> next{1};
    thread_local const std::uint64_t id = next.fetch_add(1);
    return id;
}

#endif

}  // namespace corvid::platform
