#include "SdpPromote/platform/LargePages.h"

#include <cstdint>

#include "common/platform/Platform.h"

#if HELION_LINUX_CALLS
#include <sys/mman.h>
#endif

namespace corvid::portal {

#if HELION_LINUX_CALLS

void preferLargePages(void* data, std::size_t size) {
    // Transparent huge pages on x86-64 and most arm64 kernels.
    constexpr std::uintptr_t kLargePage = std::uintptr_t{2} << 20;
    const auto start = reinterpret_cast<std::uintptr_t>(data);
    const std::uintptr_t first = (start + kLargePage - 1) & ~(kLargePage - 1);
    const std::uintptr_t last = (start + size) & ~(kLargePage - 1);
    if (last > first) {
        // Where huge pages are off, the call fails and the buffer keeps small pages.
        ::madvise(reinterpret_cast<void*>(first), last - first, MADV_HUGEPAGE);
    }
}

#else

// POSIX has no large-page hint: the buffer is faulted in page by page.
void preferLargePages(void* /*data*/, std::size_t /*size*/) {}

#endif

}  // namespace corvid::portal
