#pragma once
// The place a Unix socket is bound: a directory only its user (and the socket's group) may enter,
// and no other server's socket in the way.

#include <sys/types.h>

#include <boost/system/error_code.hpp>
#include <optional>
#include <string>

namespace helion::host {

/// How the RPC server's Unix socket is made.
struct UnixSocketOptions {
    /// Give the socket to this group (mode 0660) instead of the user alone (0600).
    std::optional<gid_t> group;
    /// Refuse a socket directory that others can enter (the default location) instead of warning.
    bool requirePrivateDirectory = false;
};

enum class SocketState { Live, Stale, Unknown };

/// Connects to path: Live when a server answers, Stale when nobody listens (a dead server's
/// leftover), Unknown otherwise with the reason in error.
SocketState probeUnixSocket(const std::string& path, boost::system::error_code& error);

/// Creates dir (and its parents) when missing, dir itself 0700. Throws StartupError.
void createSocketDirectory(const std::string& dir);

/// Whether dir is a real directory of this user that nobody else may enter; the group, when the
/// socket is given to it, may. Throws StartupError when dir is missing or not a directory.
bool isPrivateDirectory(const std::string& dir, std::optional<gid_t> group);

/// Removes a stale socket at path. Throws StartupError when a server answers there, or something
/// that is not a socket is in the way.
void clearStaleSocket(const std::string& path);

/// Makes path ready for bind(): its directory created and checked, a stale socket removed.
/// Throws StartupError.
void prepareSocketPath(const std::string& path, const UnixSocketOptions& options);

}  // namespace helion::host
