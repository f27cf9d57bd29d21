#pragma once
// Every listening socket of the host comes from here: bound through Asio, or handed over by the
// service manager. What comes back is a plain descriptor the caller owns, closed on exec.

#include <boost/system/error_code.hpp>
#include <string>

#include "common/FileDescriptor.h"
#include "host/SocketPath.h"
#include "host/endpoint/Endpoint.h"

namespace helion::host {

/// The socket the service manager passed (socket activation); empty when none. Throws
/// std::runtime_error when what was passed cannot be served.
corvid::FileDescriptor takeActivatedSocket();

/// Where the listening socket fd listens. Throws StartupError.
Endpoint endpointOf(int fd);

/// Binds a Unix stream socket at path and listens. The socket is created 0600 (never wider, not
/// even between bind and chmod); with group it then becomes 0660 and belongs to that group.
/// Throws StartupError.
corvid::FileDescriptor listenUnix(const std::string& path, std::optional<gid_t> group);

/// Binds a loopback TCP endpoint and listens; port 0 becomes the port the system chose. Returns
/// an empty descriptor with the reason in error (created tells whether the socket was made).
corvid::FileDescriptor listenTcp(Endpoint& endpoint, boost::system::error_code& error,
                                 bool& created);

/// The RPC server's socket for endpoint: the Unix path prepared and bound, or the TCP address
/// checked for loopback and bound (port 0 written back). Throws StartupError.
corvid::FileDescriptor listenOn(Endpoint& endpoint, const UnixSocketOptions& unixSocket);

}  // namespace helion::host
