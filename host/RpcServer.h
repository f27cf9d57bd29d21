#pragma once
// The host's "RpcServer": one Thrift server multiplexing every processor a module registers.

#include <thrift/processor/TMultiplexedProcessor.h>
#include <thrift/server/TThreadPoolServer.h>

#include <cstddef>
#include <cstdint>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "corvid/IRpcServer.h"
#include "host/Endpoint.h"

namespace helion::host {

class PreboundServerSocket;

/// Longest string a request may carry. The binary protocol sizes a string's buffer from the length
/// the message announces, before any of it arrives: unbounded, four bytes from a client would make
/// the host allocate up to 2 GB.
inline constexpr int32_t kMaxRpcStringBytes = 16 * 1024 * 1024;
/// Most elements a list, set or map in a request may announce. No request of the service carries
/// a container, so any one is skipped; the bound keeps the runtime's size arithmetic from
/// overflowing on an announced count near 2^31.
inline constexpr int32_t kMaxRpcContainerItems = 64 * 1024;

struct RpcServerOptions {
    Endpoint endpoint;
    /// Connections served at once; further ones wait for a free worker.
    std::size_t workers = 8;
    /// A connection idle this long is dropped, so idle clients cannot hold every worker.
    int idleTimeoutMs = 60000;
    /// Refuse a socket directory that others can enter (the default location) instead of warning.
    bool requirePrivateDirectory = false;
};

class RpcServer : public corvid::IRpcServer {
public:
    explicit RpcServer(RpcServerOptions options);
    ~RpcServer() override;

    RpcServer(const RpcServer&) = delete;
    RpcServer& operator=(const RpcServer&) = delete;

    /// Adds processor under name. Throws std::invalid_argument for a null or duplicate
    /// registration and std::logic_error once serving has started.
    void registerProcessor(const char* name,
                           std::shared_ptr<apache::thrift::TProcessor>& processor) override;

    /// Takes the endpoint: prepares the socket directory, replaces a stale socket, binds.
    /// Throws StartupError (see ModuleLibrary.h) with a one-line reason.
    void bind();
    /// Serves on background threads; returns once connections are accepted. Requires bind().
    void start();
    /// Stops accepting, ends open connections, waits for the workers, removes the socket file.
    void stop();

    /// The endpoint actually bound (a TCP port 0 becomes the port the system chose).
    const Endpoint& endpoint() const { return bound_; }
    std::vector<std::string> services() const;

private:
    void prepareUnixPath();

    RpcServerOptions options_;
    Endpoint bound_;
    std::shared_ptr<apache::thrift::TMultiplexedProcessor> multiplexer_;
    std::shared_ptr<PreboundServerSocket> socket_;
    std::shared_ptr<apache::thrift::server::TThreadPoolServer> server_;
    std::thread thread_;
    mutable std::mutex mutex_;
    std::vector<std::string> names_;
    bool serving_ = false;
    bool ownsSocketFile_ = false;
};

}  // namespace helion::host
