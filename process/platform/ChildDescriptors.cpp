#include "process/platform/ChildDescriptors.h"

#include <unistd.h>

#include "common/platform/Platform.h"

#if !HELION_LINUX_CALLS
#include <fcntl.h>
#endif

namespace corvid::process::macos::details {

#if HELION_LINUX_CALLS

int closeAllButStandardStreams(posix_spawn_file_actions_t* actions) {
    return posix_spawn_file_actions_addclosefrom_np(actions, STDERR_FILENO + 1);
}

#else

namespace {

// Descriptors are numbered below the soft limit unless it was lowered after they were opened.
// A limit raised to millions is scanned only this far (Linux's default ceiling).
constexpr long kMaxScanned = 1L << 20;

int descriptorBound() {
    const long limit = sysconf(_SC_OPEN_MAX);
    return static_cast<int>(limit > 0 && limit < kMaxScanned ? limit : kMaxScanned);
}

}  // namespace

// One close action per open descriptor, found with fcntl(): poll() would ask in fewer calls but
// does not report every kind of descriptor on every platform. Descriptors opened by other
// threads after the scan are the reason the module's own are made under SpawnExclusion.
int closeAllButStandardStreams(posix_spawn_file_actions_t* actions) {
    const int bound = descriptorBound();
    for (int fd = STDERR_FILENO + 1; fd < bound; ++fd) {
        if (fcntl(fd, F_GETFD) == -1) {
            continue;
        }
        if (const int error = posix_spawn_file_actions_addclose(actions, fd); error != 0) {
            return error;
        }
    }
    return 0;
}

#endif

}  // namespace corvid::process::macos::details
