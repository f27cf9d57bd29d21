#pragma once
// The calling thread's id as the system's tools show it, where the platform has one.

#include <cstdint>

namespace corvid::platform {

/// Linux: the kernel's thread id (as in ps -L); Apple: the system-wide id of
/// pthread_threadid_np; elsewhere a number this process gives each thread on first use.
std::uint64_t currentThreadId();

}  // namespace corvid::platform
