#include "host/ServerSocket.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <thrift/transport/TSocket.h>
#include <thrift/transport/TTransportException.h>

#include <cerrno>
#include <cstring>
#include <tuple>
#include <utility>

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

/// A connected pair: reader first. Throws StartupError.
std::pair<corvid::FileDescriptor, corvid::FileDescriptor> wakePair() {
    int fds[2] = {-1, -1};
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, fds) != 0) {
        throw StartupError("cannot create the RPC server's wake-up sockets: " + errnoText(errno));
    }
    return {corvid::FileDescriptor(fds[0]), corvid::FileDescriptor(fds[1])};
}

void wake(const corvid::FileDescriptor& writer) {
    const char byte = 0;
    if (writer) {
        [[maybe_unused]] const auto written = ::send(writer.get(), &byte, 1, MSG_NOSIGNAL);
    }
}

}  // namespace

ServerSocket::ServerSocket(corvid::FileDescriptor listening, ServerSocketOptions options)
    : listening_(std::move(listening)),
      options_(options),
      open_(std::make_shared<std::atomic<std::size_t>>(0)) {
    std::tie(wakeReader_, wakeWriter_) = wakePair();
    auto [childReader, childWriter] = wakePair();
    childWakeWriter_ = std::move(childWriter);
    childWakeReader_ = std::shared_ptr<int>(new int(childReader.release()), [](int* fd) {
        const corvid::FileDescriptor owned(*fd);
        delete fd;
    });
    // A socket from the service manager may block; accept must not once poll said ready.
    const int flags = ::fcntl(listening_.get(), F_GETFL);
    if (flags >= 0) {
        ::fcntl(listening_.get(), F_SETFL, flags | O_NONBLOCK);
    }
    ::fcntl(listening_.get(), F_SETFD, FD_CLOEXEC);
}

void ServerSocket::interrupt() {
    wake(wakeWriter_);
}

void ServerSocket::interruptChildren() {
    wake(childWakeWriter_);
}

bool ServerSocket::interruptedWithin(std::chrono::milliseconds pause) {
    pollfd woken{wakeReader_.get(), POLLIN, 0};
    return ::poll(&woken, 1, static_cast<int>(pause.count())) > 0;
}

bool ServerSocket::connectionWaiting() {
    if (!listening_) {
        throw TTransportException(TTransportException::NOT_OPEN, "server socket closed");
    }
    pollfd fds[2] = {{listening_.get(), POLLIN, 0}, {wakeReader_.get(), POLLIN, 0}};
    if (::poll(fds, 2, -1) < 0) {
        if (errno == EINTR) {
            return false;
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
    return true;
}

void ServerSocket::acceptFailed(int error) {
    if (listenerBroken(error)) {
        throw TTransportException(TTransportException::UNKNOWN, "accept()", error);
    }
    if (error == EAGAIN || error == EWOULDBLOCK || error == EINTR || error == ECONNABORTED) {
        return;
    }
    if (!acceptFailing_) {
        acceptFailing_ = true;
        HOST_LOG(spdlog::level::err, "accept() failed: {}; retrying every {} ms", errnoText(error),
                 options_.acceptRetryPause.count());
    }
    if (interruptedWithin(options_.acceptRetryPause)) {
        throw TTransportException(TTransportException::INTERRUPTED, "interrupted");
    }
}

std::shared_ptr<TTransport> ServerSocket::acceptImpl() {
    for (;;) {
        if (!connectionWaiting()) {
            continue;
        }
        corvid::FileDescriptor client(::accept4(listening_.get(), nullptr, nullptr, SOCK_CLOEXEC));
        if (!client) {
            acceptFailed(errno);
            continue;
        }
        if (acceptFailing_) {
            acceptFailing_ = false;
            HOST_LOG(spdlog::level::info, "accepting connections again");
        }
        if (open_->load() >= options_.maxConnections) {
            if (!overloaded_) {
                overloaded_ = true;
                HOST_LOG(spdlog::level::warn,
                         "{} connections open; closing new ones until one ends",
                         options_.maxConnections);
            }
            continue;
        }
        overloaded_ = false;
        auto socket = std::make_shared<CountedSocket>(client.release(), childWakeReader_, open_);
        socket->setRecvTimeout(options_.recvTimeoutMs);
        socket->setSendTimeout(options_.sendTimeoutMs);
        return socket;
    }
}

}  // namespace helion::host
