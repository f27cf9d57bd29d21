#pragma once
// The RPC server's listening socket: descriptors closed on exec, a bound on the connections open
// at once, accept failures waited out instead of ending the server, and a socket that may come
// ready-made from the service manager.

#include <sys/types.h>
#include <thrift/transport/TServerTransport.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace helion::host {

struct ServerSocketOptions {
    /// Connections open at once; further ones are closed as soon as they are accepted.
    std::size_t maxConnections = 16;
    /// Receive and send timeouts of an accepted connection.
    int recvTimeoutMs = 60000;
    int sendTimeoutMs = 60000;
    /// How long to wait before accepting again after accept() failed (descriptors ran out).
    std::chrono::milliseconds acceptRetryPause{250};
};

/// Binds a Unix stream socket at path and listens. The socket is created 0600 (never wider, not
/// even between bind and chmod); with group it then becomes 0660 and belongs to that group.
/// Throws StartupError.
int listenUnix(const std::string& path, std::optional<gid_t> group);
/// Binds a TCP socket to a numeric address and listens; port 0 picks a free port, written back.
/// Throws StartupError.
int listenTcp(const std::string& address, uint16_t& port);

class ServerSocket : public apache::thrift::transport::TServerTransport {
public:
    /// Takes ownership of a listening socket.
    ServerSocket(int listenFd, ServerSocketOptions options);
    ~ServerSocket() override;

    ServerSocket(const ServerSocket&) = delete;
    ServerSocket& operator=(const ServerSocket&) = delete;

    bool isOpen() const override { return fd_ >= 0; }
    /// Already listening: the socket was bound before the module loaded.
    void listen() override {}
    void interrupt() override;
    void interruptChildren() override;
    THRIFT_SOCKET getSocketFD() override { return fd_; }
    void close() override;

    /// Accepted connections not yet closed.
    std::size_t openConnections() const { return open_->load(); }

protected:
    std::shared_ptr<apache::thrift::transport::TTransport> acceptImpl() override;

private:
    /// Waits up to pause for an interrupt; true when one came.
    bool interruptedWithin(std::chrono::milliseconds pause);

    int fd_;
    ServerSocketOptions options_;
    // interrupt() writes to wake_[1] and wakes acceptImpl(); interruptChildren() does the same
    // for every accepted connection through the children's pair.
    int wake_[2] = {-1, -1};
    int childWakeWriter_ = -1;
    std::shared_ptr<int> childWakeReader_;
    std::shared_ptr<std::atomic<std::size_t>> open_;
    bool acceptFailing_ = false;
    bool overloaded_ = false;
};

}  // namespace helion::host
