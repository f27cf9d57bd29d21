#include "host/endpoint/Endpoint.h"

#include <sys/un.h>
#include <unistd.h>

#include <boost/asio/ip/address.hpp>
#include <cstdlib>
#include <stdexcept>

namespace helion::host {

namespace {

constexpr const char* kUnixPrefix = "unix:";
constexpr const char* kTcpPrefix = "tcp:";

bool startsWith(const std::string& text, const char* prefix) {
    return text.rfind(prefix, 0) == 0;
}

uint16_t parsePort(const std::string& text, const std::string& whole) {
    if (text.empty() || text.size() > 5 ||
        text.find_first_not_of("0123456789") != std::string::npos) {
        throw std::invalid_argument("invalid port in '" + whole + "'");
    }
    const unsigned long port = std::stoul(text);
    if (port > 65535) {
        throw std::invalid_argument("port out of range in '" + whole + "'");
    }
    return static_cast<uint16_t>(port);
}

}  // namespace

std::string Endpoint::str() const {
    if (kind == Kind::Unix) {
        return kUnixPrefix + path;
    }
    const bool v6 = address.find(':') != std::string::npos;
    return std::string(kTcpPrefix) + (v6 ? "[" + address + "]" : address) + ":" +
           std::to_string(port);
}

Endpoint parseEndpoint(const std::string& text) {
    Endpoint endpoint;
    if (startsWith(text, kUnixPrefix)) {
        endpoint.kind = Endpoint::Kind::Unix;
        endpoint.path = text.substr(std::char_traits<char>::length(kUnixPrefix));
        if (endpoint.path.empty()) {
            throw std::invalid_argument("empty socket path in '" + text + "'");
        }
        // sun_path holds the path and its terminating NUL.
        if (endpoint.path.size() >= sizeof(sockaddr_un::sun_path)) {
            throw std::invalid_argument("socket path longer than " +
                                        std::to_string(sizeof(sockaddr_un::sun_path) - 1) +
                                        " bytes: '" + endpoint.path + "'");
        }
        return endpoint;
    }
    if (!startsWith(text, kTcpPrefix)) {
        throw std::invalid_argument("'" + text + "' is neither unix:PATH nor tcp:HOST:PORT");
    }
    const std::string rest = text.substr(std::char_traits<char>::length(kTcpPrefix));
    endpoint.kind = Endpoint::Kind::Tcp;
    std::string host;
    std::string port;
    if (!rest.empty() && rest.front() == '[') {
        const auto close = rest.find(']');
        if (close == std::string::npos || close + 1 >= rest.size() || rest[close + 1] != ':') {
            throw std::invalid_argument("expected tcp:[ADDRESS]:PORT in '" + text + "'");
        }
        host = rest.substr(1, close - 1);
        port = rest.substr(close + 2);
    } else {
        const auto colon = rest.rfind(':');
        if (colon == std::string::npos) {
            throw std::invalid_argument("expected tcp:HOST:PORT in '" + text + "'");
        }
        host = rest.substr(0, colon);
        port = rest.substr(colon + 1);
    }
    if (host == "localhost") {
        host = "127.0.0.1";
    }
    boost::system::error_code error;
    const auto address = boost::asio::ip::make_address(host, error);
    if (error) {
        throw std::invalid_argument("'" + host + "' is not a numeric address in '" + text + "'");
    }
    endpoint.address = address.to_string();
    endpoint.port = parsePort(port, text);
    return endpoint;
}

void requireLoopback(const Endpoint& endpoint) {
    if (endpoint.kind != Endpoint::Kind::Tcp) {
        return;
    }
    if (!boost::asio::ip::make_address(endpoint.address).is_loopback()) {
        throw std::invalid_argument("refusing to listen on non-loopback address " +
                                    endpoint.address + "; use 127.0.0.1, ::1 or a unix socket");
    }
}

std::string defaultSocketPath() {
    const char* runtimeDir = std::getenv("XDG_RUNTIME_DIR");
    if (runtimeDir != nullptr && runtimeDir[0] == '/') {
        return std::string(runtimeDir) + "/helion/promote.sock";
    }
    if (::geteuid() == 0) {
        return "/run/helion/promote.sock";
    }
    return "/tmp/helion-" + std::to_string(::geteuid()) + "/promote.sock";
}

}  // namespace helion::host
