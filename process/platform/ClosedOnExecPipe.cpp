#include "process/platform/ClosedOnExecPipe.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>

#include "common/platform/Platform.h"
#include "process/platform/SpawnExclusion.h"

namespace corvid::process::macos::details {

#if HELION_LINUX_CALLS

int openClosedOnExecPipe(int ends[2]) {
    return pipe2(ends, O_CLOEXEC) == 0 ? 0 : errno;
}

#else

// pipe() and fcntl() are two steps; the module's spawns wait for both under SpawnExclusion.
int openClosedOnExecPipe(int ends[2]) {
    const SpawnExclusion exclusion;
    if (pipe(ends) != 0) {
        return errno;
    }
    for (int i = 0; i < 2; ++i) {
        if (fcntl(ends[i], F_SETFD, FD_CLOEXEC) != 0) {
            const int error = errno;
            close(ends[0]);
            close(ends[1]);
            return error;
        }
    }
    return 0;
}

#endif

}  // namespace corvid::process::macos::details
