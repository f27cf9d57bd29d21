#pragma once
// Starts "/bin/sh -c CMD" as a child that inherits nothing of the host but its standard streams.

#include <sys/types.h>

#include <string>

namespace corvid::process::macos::details {

/// Starts the shell on cmd. The child gets standard input and error from this process and
/// standard output from stdoutFd; every other descriptor (listening sockets, log files, pipes
/// of other threads) is closed, SIGPIPE is back at its default and no signal is blocked, so a
/// host's own settings never reach the programs the module starts. Returns 0 and sets pid, or
/// returns the error number.
int spawnShell(const std::string& cmd, int stdoutFd, pid_t& pid);

/// Waits for the child; its wait status, or -1 when it cannot be waited for.
int waitForChild(pid_t pid);

}  // namespace corvid::process::macos::details
