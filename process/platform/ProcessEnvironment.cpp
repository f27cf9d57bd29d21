#include "process/platform/ProcessEnvironment.h"

#if defined(__APPLE__)
#include <crt_externs.h>
#else
extern char** environ;
#endif

namespace corvid::process::macos::details {

char** processEnvironment() {
#if defined(__APPLE__)
    return *_NSGetEnviron();
#else
    return environ;
#endif
}

}  // namespace corvid::process::macos::details
