#pragma once
// Where the host serves RPC and where clients find it: "unix:PATH" or "tcp:HOST:PORT".

#include <cstdint>
#include <string>

namespace helion::host {

struct Endpoint {
    enum class Kind { Unix, Tcp };

    Kind kind = Kind::Unix;
    /// Socket path (Unix) or numeric address (TCP).
    std::string path;
    std::string address;
    uint16_t port = 0;

    /// "unix:/run/..." or "tcp:127.0.0.1:9090", the form parse() takes.
    std::string str() const;
};

/// Parses "unix:PATH" or "tcp:HOST:PORT" (HOST an IPv4 address, "[IPv6]" or "localhost").
/// Throws std::invalid_argument with a readable reason.
Endpoint parseEndpoint(const std::string& text);

/// Throws std::invalid_argument unless a TCP endpoint's address is a loopback address:
/// the service trusts its callers, so it never listens where another machine can reach it.
void requireLoopback(const Endpoint& endpoint);

/// The per-user socket both the host and the client default to: $XDG_RUNTIME_DIR/helion when set,
/// /run/helion for root, else /tmp/helion-<uid>.
std::string defaultSocketPath();

}  // namespace helion::host
