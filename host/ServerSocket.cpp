#include "host/ServerSocket.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <thrift/transport/TSocket.h>
#include <thrift/transport/TTransportException.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "host/HostLog.h"
#include "host/StartupError.h"

namespace helion::host {

using apache::thrift::transport::TSocket;
using apache::thrift::transport::TTransport;
using apache::thrift::transport::TTransportException;

namespace {

std::string errnoText(int error) {
    return std::strerror(error);
}

/// Counts itself out when the server lets go of the connection.
class CountedSocket : public TSocket {
public:
    CountedSocket(int fd, std::shared_ptr<int> wake, std::shared_ptr<std::atomic<std::size_t>> open)
        : TSocket(fd, std::move(wake)), open_(std::move(open)) {
        ++*open_;
    }
    ~CountedSocket() override { --*open_; }

private:
    std::shared_ptr<std::atomic<std::size_t>> open_;
};

/// Errors that say the listening socket itself is gone; anything else passes (a connection that
/// vanished before it was accepted, descriptors or memory running out for a while).
bool listenerBroken(int error) {
    return error == EBADF || error == EINVAL || error == ENOTSOCK || error == EOPNOTSUPP ||
           error == EFAULT;
}

int listenOn(int fd, const std::string& where) {
    if (::listen(fd, SOMAXCONN) != 0) {
        const int error = errno;
        ::close(fd);
        throw StartupError("cannot listen on " + where + ": " + errnoText(error));
    }
    return fd;
}

}  // namespace

int listenUnix(const std::string& path, std::optional<gid_t> group) {
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0) {
        throw StartupError("cannot create a socket: " + errnoText(errno));
    }
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
    // bind() creates the file with the umask's mode; nobody else may connect before the chmod.
    const mode_t previous = ::umask(0177);
    const int rc = ::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address));
    const int bindError = errno;
    ::umask(previous);
    if (rc != 0) {
        ::close(fd);
        throw StartupError("cannot listen on unix:" + path + ": " + errnoText(bindError));
    }
    if (group) {
        if (::fchownat(AT_FDCWD, path.c_str(), static_cast<uid_t>(-1), *group,
                       AT_SYMLINK_NOFOLLOW) != 0 ||
            ::chmod(path.c_str(), 0660) != 0) {
            const int error = errno;
            ::close(fd);
            ::unlink(path.c_str());
            throw StartupError("cannot give socket '" + path + "' to group " +
                               std::to_string(*group) + ": " + errnoText(error));
        }
    }
    return listenOn(fd, "unix:" + path);
}

int listenTcp(const std::string& address, uint16_t& port) {
    sockaddr_storage storage{};
    socklen_t length = 0;
    auto* v4 = reinterpret_cast<sockaddr_in*>(&storage);
    auto* v6 = reinterpret_cast<sockaddr_in6*>(&storage);
    if (::inet_pton(AF_INET, address.c_str(), &v4->sin_addr) == 1) {
        v4->sin_family = AF_INET;
        v4->sin_port = htons(port);
        length = sizeof(*v4);
    } else if (::inet_pton(AF_INET6, address.c_str(), &v6->sin6_addr) == 1) {
        v6->sin6_family = AF_INET6;
        v6->sin6_port = htons(port);
        length = sizeof(*v6);
    } else {
        throw StartupError("'" + address + "' is not a numeric address");
    }
    const std::string where = "tcp:" + address + ":" + std::to_string(port);
    const int fd = ::socket(storage.ss_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
    if (fd < 0) {
        throw StartupError("cannot create a socket: " + errnoText(errno));
    }
    const int on = 1;
    ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
    if (::bind(fd, reinterpret_cast<const sockaddr*>(&storage), length) != 0) {
        const int error = errno;
        ::close(fd);
        throw StartupError("cannot listen on " + where + ": " + errnoText(error));
    }
    listenOn(fd, where);
    length = sizeof(storage);
    if (::getsockname(fd, reinterpret_cast<sockaddr*>(&storage), &length) == 0) {
        port = ntohs(storage.ss_family == AF_INET ? v4->sin_port : v6->sin6_port);
    }
    return fd;
}

ServerSocket::ServerSocket(int listenFd, ServerSocketOptions options)
    : fd_(listenFd), options_(options), open_(std::make_shared<std::atomic<std::size_t>>(0)) {
    int children[2] = {-1, -1};
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, wake_) != 0 ||
        ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, children) != 0) {
        const int error = errno;
        for (const int fd : {fd_, wake_[0], wake_[1], children[0], children[1]}) {
            if (fd >= 0) {
                ::close(fd);
            }
        }
        throw StartupError("cannot create the RPC server's wake-up sockets: " + errnoText(error));
    }
    childWakeWriter_ = children[1];
    childWakeReader_ = std::shared_ptr<int>(new int(children[0]), [](int* fd) {
        ::close(*fd);
        delete fd;
    });
    // A socket from the service manager may block; accept must not once poll said ready.
    const int flags = ::fcntl(fd_, F_GETFL);
    if (flags >= 0) {
        ::fcntl(fd_, F_SETFL, flags | O_NONBLOCK);
    }
    ::fcntl(fd_, F_SETFD, FD_CLOEXEC);
}

ServerSocket::~ServerSocket() {
    close();
    for (int& fd : wake_) {
        if (fd >= 0) {
            ::close(fd);
            fd = -1;
        }
    }
    if (childWakeWriter_ >= 0) {
        ::close(childWakeWriter_);
    }
}

void ServerSocket::interrupt() {
    const char byte = 0;
    if (wake_[1] >= 0) {
        [[maybe_unused]] const auto written = ::send(wake_[1], &byte, 1, MSG_NOSIGNAL);
    }
}

void ServerSocket::interruptChildren() {
    const char byte = 0;
    if (childWakeWriter_ >= 0) {
        [[maybe_unused]] const auto written = ::send(childWakeWriter_, &byte, 1, MSG_NOSIGNAL);
    }
}

void ServerSocket::close() {
    if (fd_ >= 0) {
        ::close(fd_);
        fd_ = -1;
    }
}

bool ServerSocket::interruptedWithin(std::chrono::milliseconds pause) {
    pollfd wake{wake_[0], POLLIN, 0};
    return ::poll(&wake, 1, static_cast<int>(pause.count())) > 0;
}

std::shared_ptr<TTransport> ServerSocket::acceptImpl() {
    for (;;) {
        if (fd_ < 0) {
            throw TTransportException(TTransportException::NOT_OPEN, "server socket closed");
        }
        pollfd fds[2] = {{fd_, POLLIN, 0}, {wake_[0], POLLIN, 0}};
        if (::poll(fds, 2, -1) < 0) {
            if (errno == EINTR) {
                continue;
            }
            throw TTransportException(TTransportException::UNKNOWN, "poll()", errno);
        }
        if (fds[1].revents != 0) {
            throw TTransportException(TTransportException::INTERRUPTED, "interrupted");
        }
        // A listener shut down or broken would report ready for ever without a connection.
        if ((fds[0].revents & (POLLERR | POLLHUP | POLLNVAL)) != 0) {
            throw TTransportException(TTransportException::UNKNOWN, "listening socket broke");
        }
        const int client = ::accept4(fd_, nullptr, nullptr, SOCK_CLOEXEC);
        if (client < 0) {
            const int error = errno;
            if (listenerBroken(error)) {
                throw TTransportException(TTransportException::UNKNOWN, "accept()", error);
            }
            if (error == EAGAIN || error == EWOULDBLOCK || error == EINTR ||
                error == ECONNABORTED) {
                continue;
            }
            if (!acceptFailing_) {
                acceptFailing_ = true;
                HOST_LOG(spdlog::level::err, "accept() failed: {}; retrying every {} ms",
                         errnoText(error), options_.acceptRetryPause.count());
            }
            if (interruptedWithin(options_.acceptRetryPause)) {
                throw TTransportException(TTransportException::INTERRUPTED, "interrupted");
            }
            continue;
        }
        if (acceptFailing_) {
            acceptFailing_ = false;
            HOST_LOG(spdlog::level::info, "accepting connections again");
        }
        if (open_->load() >= options_.maxConnections) {
            ::close(client);
            if (!overloaded_) {
                overloaded_ = true;
                HOST_LOG(spdlog::level::warn,
                         "{} connections open; closing new ones until one ends",
                         options_.maxConnections);
            }
            continue;
        }
        overloaded_ = false;
        auto socket = std::make_shared<CountedSocket>(client, childWakeReader_, open_);
        socket->setRecvTimeout(options_.recvTimeoutMs);
        socket->setSendTimeout(options_.sendTimeoutMs);
        return socket;
    }
}

}  // namespace helion::host
