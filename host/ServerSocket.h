#pragma once
// The RPC server's accept loop: descriptors closed on exec, a bound on the connections open at
// once, accept failures waited out instead of ending the server.

#include <thrift/transport/TServerTransport.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <memory>

#include "common/FileDescriptor.h"

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

class ServerSocket : public apache::thrift::transport::TServerTransport {
public:
    /// Serves a listening socket (see ListeningSocket.h).
    ServerSocket(corvid::FileDescriptor listening, ServerSocketOptions options);
    ~ServerSocket() override = default;

    ServerSocket(const ServerSocket&) = delete;
    ServerSocket& operator=(const ServerSocket&) = delete;

    bool isOpen() const override { return static_cast<bool>(listening_); }
    /// Already listening: the socket was bound before the module loaded.
    void listen() override {}
    void interrupt() override;
    void interruptChildren() override;
    THRIFT_SOCKET getSocketFD() override { return listening_.get(); }
    void close() override { listening_.reset(); }

    /// Accepted connections not yet closed.
    std::size_t openConnections() const { return open_->load(); }

protected:
    std::shared_ptr<apache::thrift::transport::TTransport> acceptImpl() override;

private:
    /// Waits for a connection; false when a signal broke the wait. Throws when interrupted or
    /// when the listener broke.
    bool connectionWaiting();
    /// Passes over a failed accept(), waiting out shortages (descriptors, memory). Throws when
    /// the listener broke or an interrupt came meanwhile.
    void acceptFailed(int error);
    /// Waits up to pause for an interrupt; true when one came.
    bool interruptedWithin(std::chrono::milliseconds pause);

    corvid::FileDescriptor listening_;
    ServerSocketOptions options_;
    // interrupt() writes to wakeWriter_ and wakes acceptImpl(); interruptChildren() does the same
    // for every accepted connection through the children's pair.
    corvid::FileDescriptor wakeReader_;
    corvid::FileDescriptor wakeWriter_;
    corvid::FileDescriptor childWakeWriter_;
    // Shared with the connections, which may outlive this transport.
    std::shared_ptr<int> childWakeReader_;
    std::shared_ptr<std::atomic<std::size_t>> open_;
    bool acceptFailing_ = false;
    bool overloaded_ = false;
};

}  // namespace helion::host
