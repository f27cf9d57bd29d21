#include "host/ListeningSocket.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <systemd/sd-daemon.h>
#include <unistd.h>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "host/StartupError.h"

namespace helion::host {

namespace net = boost::asio;
using net::ip::tcp;
using net::local::stream_protocol;

namespace {

/// Programs the module starts must not inherit a listener.
template <typename Acceptor>
void closeOnExec(Acceptor& acceptor) {
    ::fcntl(acceptor.native_handle(), F_SETFD, FD_CLOEXEC);
}

/// Opens, binds and listens, stopping at the first failure; created tells whether open worked.
template <typename Acceptor>
void openBindListen(Acceptor& acceptor, const typename Acceptor::endpoint_type& where,
                    boost::system::error_code& error, bool& created) {
    acceptor.open(where.protocol(), error);
    created = !error;
    if (error) {
        return;
    }
    closeOnExec(acceptor);
    if (where.protocol().family() != AF_UNIX) {
        acceptor.set_option(net::socket_base::reuse_address(true), error);
    }
    if (!error) {
        acceptor.bind(where, error);
    }
    if (!error) {
        acceptor.listen(net::socket_base::max_listen_connections, error);
    }
}

/// Gives the socket group the path: mode 0660, that group. Throws StartupError.
void shareWithGroup(const std::string& path, gid_t group) {
    if (::fchownat(AT_FDCWD, path.c_str(), static_cast<uid_t>(-1), group, AT_SYMLINK_NOFOLLOW) !=
            0 ||
        ::chmod(path.c_str(), 0660) != 0) {
        const int error = errno;
        ::unlink(path.c_str());
        throw StartupError("cannot give socket '" + path + "' to group " + std::to_string(group) +
                           ": " + std::strerror(error));
    }
}

int socketDomain(int fd) {
    int domain = AF_UNSPEC;
    socklen_t size = sizeof(domain);
    if (::getsockopt(fd, SOL_SOCKET, SO_DOMAIN, &domain, &size) != 0) {
        throw StartupError(std::string("the handed-over socket has no address: ") +
                           std::strerror(errno));
    }
    return domain;
}

/// Reads the local address through an acceptor that borrows fd and gives it back.
template <typename Acceptor>
typename Acceptor::endpoint_type localEndpoint(int fd, const typename Acceptor::protocol_type& p) {
    net::io_context io;
    Acceptor acceptor(io, p, fd);
    boost::system::error_code error;
    const auto where = acceptor.local_endpoint(error);
    acceptor.release();
    if (error) {
        throw StartupError("the handed-over socket has no address: " + error.message());
    }
    return where;
}

}  // namespace

corvid::FileDescriptor takeActivatedSocket() {
    // 1: the variables go, so programs the module starts do not think they were passed sockets.
    const int count = sd_listen_fds(1);
    if (count < 0) {
        throw std::runtime_error(std::string("cannot take the passed sockets: ") +
                                 std::strerror(-count));
    }
    if (count == 0) {
        return corvid::FileDescriptor();
    }
    if (count > 1 || sd_is_socket(SD_LISTEN_FDS_START, AF_UNSPEC, SOCK_STREAM, 1) <= 0) {
        throw std::runtime_error("expected one listening stream socket from the service manager");
    }
    return corvid::FileDescriptor(SD_LISTEN_FDS_START);
}

Endpoint endpointOf(int fd) {
    Endpoint endpoint;
    const int domain = socketDomain(fd);
    if (domain == AF_UNIX) {
        endpoint.kind = Endpoint::Kind::Unix;
        endpoint.path = localEndpoint<stream_protocol::acceptor>(fd, stream_protocol()).path();
        return endpoint;
    }
    if (domain != AF_INET && domain != AF_INET6) {
        throw StartupError("the handed-over socket is neither a Unix nor a TCP socket");
    }
    const auto where = localEndpoint<tcp::acceptor>(fd, domain == AF_INET ? tcp::v4() : tcp::v6());
    endpoint.kind = Endpoint::Kind::Tcp;
    endpoint.address = where.address().to_string();
    endpoint.port = where.port();
    return endpoint;
}

corvid::FileDescriptor listenUnix(const std::string& path, std::optional<gid_t> group) {
    net::io_context io;
    stream_protocol::acceptor acceptor(io);
    boost::system::error_code error;
    bool created = false;
    // bind() creates the file with the umask's mode; nobody else may connect before the chmod.
    const mode_t previous = ::umask(0177);
    openBindListen(acceptor, stream_protocol::endpoint(path), error, created);
    ::umask(previous);
    if (!created) {
        throw StartupError("cannot create a socket: " + error.message());
    }
    if (error) {
        throw StartupError("cannot listen on unix:" + path + ": " + error.message());
    }
    if (group) {
        shareWithGroup(path, *group);
    }
    return corvid::FileDescriptor(acceptor.release());
}

corvid::FileDescriptor listenTcp(Endpoint& endpoint, boost::system::error_code& error,
                                 bool& created) {
    net::io_context io;
    tcp::acceptor acceptor(io);
    const auto address = net::ip::make_address(endpoint.address, error);
    if (error) {
        created = false;
        return corvid::FileDescriptor();
    }
    openBindListen(acceptor, tcp::endpoint(address, endpoint.port), error, created);
    if (error) {
        return corvid::FileDescriptor();
    }
    endpoint.port = acceptor.local_endpoint().port();
    return corvid::FileDescriptor(acceptor.release());
}

corvid::FileDescriptor listenOn(Endpoint& endpoint, const UnixSocketOptions& unixSocket) {
    if (endpoint.kind == Endpoint::Kind::Unix) {
        prepareSocketPath(endpoint.path, unixSocket);
        return listenUnix(endpoint.path, unixSocket.group);
    }
    try {
        requireLoopback(endpoint);
    } catch (const std::invalid_argument& error) {
        throw StartupError(error.what());
    }
    const std::string where = "tcp:" + endpoint.address + ":" + std::to_string(endpoint.port);
    boost::system::error_code error;
    bool created = false;
    auto fd = listenTcp(endpoint, error, created);
    if (!created) {
        throw StartupError("cannot create a socket: " + error.message());
    }
    if (!fd) {
        throw StartupError("cannot listen on " + where + ": " + error.message());
    }
    return fd;
}

}  // namespace helion::host
