#pragma once
// The client's check that a Unix socket is the one its owner meant: whoever may write to a
// directory on the way to it could have put another program's socket there.

#include <string>

namespace helion::tools {

/// Throws ToolError naming the directory, its owner and the reason unless every directory the
/// socket path runs through belongs to this user or to root, the directory holding the socket
/// and each link to it is writable by no one else, and no directory above it lets others replace
/// entries (writable by others only with the sticky bit, as /tmp is). A missing directory passes:
/// there is nothing to connect to.
void requireTrustedSocketDirectory(const std::string& socketPath);

}  // namespace helion::tools
