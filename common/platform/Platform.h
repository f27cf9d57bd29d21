#pragma once
// Which branch the platform files compile: the Linux calls, or the portable POSIX ones that the
// module's other platforms need. HELION_POSIX_FALLBACKS (a build option) forces the portable
// branch on Linux so that it is built and tested there too.

#if defined(__linux__) && !defined(HELION_POSIX_FALLBACKS)
#define HELION_LINUX_CALLS 1
#else
#define HELION_LINUX_CALLS 0
#endif
