#pragma once
// The host's "RpcServer": one Thrift server multiplexing every processor a module registers.

#include <thrift/concurrency/ThreadManager.h>
#include <thrift/processor/TMultiplexedProcessor.h>
#include <thrift/server/TThreadPoolServer.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "corvid/IRpcServer.h"
#include "host/CallTracker.h"
#include "host/SocketPath.h"
#include "host/endpoint/Endpoint.h"

namespace helion::host {

class ServerSocket;

struct RpcServerOptions {
    Endpoint endpoint;
    /// A listening socket handed over by the service manager, owned from bind() on; used instead
    /// of binding endpoint.
    int listenFd = -1;
    /// Connections served at once; up to queue more wait for a free worker, further ones are
    /// closed at once.
    std::size_t workers = 8;
    std::size_t queue = 8;
    /// A connection idle this long is dropped, so idle clients cannot hold every worker.
    int idleTimeoutMs = 60000;
    /// A request must arrive whole within this long of its first byte.
    int requestTimeoutMs = 30000;
    /// Who may use a Unix socket, and how private its directory must be.
    UnixSocketOptions unixSocket;
    /// Called on the serving thread when serving ends without stop() (the listener broke).
    std::function<void()> onServingEnded;
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

    /// Takes the endpoint (see ListeningSocket.h), or adopts the handed-over socket. Throws
    /// StartupError (see ModuleLibrary.h) with a one-line reason.
    void bind();
    /// Serves on background threads; returns once connections are accepted. Requires bind().
    void start();
    /// Stops accepting, ends open connections, waits for the workers, removes the socket file.
    void stop();

    /// Whether the workers still get through their work: a probe task queued behind the
    /// connections ran, or some call finished, within wait. False when not serving.
    bool answers(std::chrono::milliseconds wait);
    /// The calls of every registered processor (unless the module gave it a handler of its own).
    const CallTracker& calls() const { return *calls_; }

    /// The endpoint actually bound (a TCP port 0 becomes the port the system chose).
    const Endpoint& endpoint() const { return bound_; }
    std::vector<std::string> services() const;

private:
    /// A probe task in the workers' queue, and how many have run.
    struct ProbeState {
        std::mutex mutex;
        std::condition_variable ran;
        bool queued = false;
        std::uint64_t runs = 0;
    };

    RpcServerOptions options_;
    Endpoint bound_;
    std::shared_ptr<apache::thrift::TMultiplexedProcessor> multiplexer_;
    std::shared_ptr<ServerSocket> socket_;
    std::shared_ptr<apache::thrift::concurrency::ThreadManager> threads_;
    std::shared_ptr<apache::thrift::server::TThreadPoolServer> server_;
    std::shared_ptr<CallTracker> calls_ = std::make_shared<CallTracker>();
    std::shared_ptr<ProbeState> probe_ = std::make_shared<ProbeState>();
    std::thread thread_;
    mutable std::mutex mutex_;
    std::vector<std::string> names_;
    bool serving_ = false;
    std::atomic<bool> stopping_{false};
    bool ownsSocketFile_ = false;
};

}  // namespace helion::host
