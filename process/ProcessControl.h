#pragma once
// Ending a running program by its command line, and launching one in the background.

#include <string>

namespace corvid::process::macos::details {

/// Looks for processes whose `ps -ef` line contains name and sends SIGKILL to the first one
/// listed that is not this process. True when a kill command was issued.
bool terminateProcessByCmdLine(const std::string& name);

/// Starts path through the shell in the background, with this process's own privileges.
/// path may carry arguments after the first blank that follows its last separator; a relative
/// program is resolved against the current working directory. True when the shell's exit code
/// is 0.
bool startwithHighPermission(const std::string& path);

}  // namespace corvid::process::macos::details
