#include "host/RpcServer.h"

#include <thrift/concurrency/FunctionRunner.h>
#include <thrift/concurrency/ThreadFactory.h>
#include <thrift/concurrency/ThreadManager.h>
#include <thrift/protocol/TBinaryProtocol.h>
#include <thrift/server/TServer.h>
#include <thrift/transport/TBufferTransports.h>
#include <unistd.h>

#include <chrono>
#include <stdexcept>
#include <utility>

#include "host/HostLog.h"
#include "host/ListeningSocket.h"
#include "host/RequestDeadline.h"
#include "host/ServerSocket.h"
#include "host/StartupError.h"
#include "rpc/RpcLimits.h"

namespace helion::host {

using apache::thrift::TProcessor;

namespace {

/// Lets start() wait until the accept loop runs.
class ReadySignal : public apache::thrift::server::TServerEventHandler {
public:
    explicit ReadySignal(std::shared_ptr<std::promise<void>> ready) : ready_(std::move(ready)) {}
    void preServe() override { ready_->set_value(); }

private:
    std::shared_ptr<std::promise<void>> ready_;
};

}  // namespace

RpcServer::RpcServer(RpcServerOptions options)
    : options_(std::move(options)),
      bound_(options_.endpoint),
      multiplexer_(std::make_shared<apache::thrift::TMultiplexedProcessor>()) {}

RpcServer::~RpcServer() {
    stop();
}

void RpcServer::registerProcessor(const char* name, std::shared_ptr<TProcessor>& processor) {
    if (name == nullptr || name[0] == '\0' || !processor) {
        throw std::invalid_argument("registerProcessor needs a service name and a processor");
    }
    std::lock_guard<std::mutex> lock(mutex_);
    // The multiplexer's table is not guarded; it must be complete before the first call.
    if (serving_) {
        throw std::logic_error(std::string("cannot register '") + name +
                               "': the RPC server is already serving");
    }
    for (const auto& known : names_) {
        if (known == name) {
            throw std::invalid_argument(std::string("a processor named '") + name +
                                        "' is already registered");
        }
    }
    if (!processor->getEventHandler()) {
        processor->setEventHandler(calls_);
    }
    multiplexer_->registerProcessor(name, processor);
    names_.emplace_back(name);
    HOST_LOG(spdlog::level::info, "registered RPC service '{}'", name);
}

std::vector<std::string> RpcServer::services() const {
    std::lock_guard<std::mutex> lock(mutex_);
    return names_;
}

void RpcServer::bind() {
    if (socket_) {
        return;
    }
    if (options_.workers == 0) {
        throw StartupError("the RPC server needs at least one worker");
    }
    corvid::FileDescriptor fd(std::exchange(options_.listenFd, -1));
    if (fd) {
        bound_ = endpointOf(fd.get());
    } else {
        fd = listenOn(bound_, options_.unixSocket);
        ownsSocketFile_ = bound_.kind == Endpoint::Kind::Unix;
    }
    ServerSocketOptions socketOptions;
    socketOptions.maxConnections = options_.workers + options_.queue;
    socketOptions.recvTimeoutMs = options_.idleTimeoutMs;
    socketOptions.sendTimeoutMs = options_.idleTimeoutMs;
    socket_ = std::make_shared<ServerSocket>(std::move(fd), socketOptions);
}

void RpcServer::start() {
    if (!socket_) {
        throw std::logic_error("RpcServer::start() before bind()");
    }
    {
        std::lock_guard<std::mutex> lock(mutex_);
        if (serving_) {
            return;
        }
        serving_ = true;
    }
    using namespace apache::thrift;
    auto threads = concurrency::ThreadManager::newSimpleThreadManager(options_.workers);
    threads->threadFactory(std::make_shared<concurrency::ThreadFactory>());
    threads->start();
    threads_ = threads;
    auto protocols = std::make_shared<protocol::TBinaryProtocolFactory>(
        rpc::kMaxRpcStringBytes, rpc::kMaxRpcContainerItems, false, true);
    server_ = std::make_shared<server::TThreadPoolServer>(
        multiplexer_, socket_,
        std::make_shared<RequestDeadlineTransportFactory>(
            std::chrono::milliseconds(options_.idleTimeoutMs),
            std::chrono::milliseconds(options_.requestTimeoutMs)),
        std::make_shared<transport::TBufferedTransportFactory>(), protocols, protocols, threads);

    auto ready = std::make_shared<std::promise<void>>();
    auto readyFuture = ready->get_future();
    server_->setServerEventHandler(std::make_shared<ReadySignal>(ready));
    thread_ = std::thread([this, ready] {
        try {
            server_->serve();
        } catch (const std::exception& error) {
            HOST_LOG(spdlog::level::err, "RPC server stopped; Reason: {}", error.what());
            try {
                ready->set_exception(std::current_exception());
                return;
            } catch (const std::future_error&) {
                // Already serving when it failed: that is the end of serving, reported below.
            }
        }
        if (!stopping_) {
            HOST_LOG(spdlog::level::critical, "RPC serving on {} ended without a stop request",
                     bound_.str());
            if (options_.onServingEnded) {
                options_.onServingEnded();
            }
        }
    });
    try {
        readyFuture.get();
    } catch (const std::exception& error) {
        thread_.join();
        throw StartupError("cannot serve on " + bound_.str() + ": " + error.what());
    }
    HOST_LOG(spdlog::level::info, "serving RPC on {} with {} workers", bound_.str(),
             options_.workers);
}

bool RpcServer::answers(std::chrono::milliseconds wait) {
    if (!threads_ || stopping_) {
        return false;
    }
    const auto finishedBefore = calls_->finished();
    std::unique_lock<std::mutex> lock(probe_->mutex);
    const auto runsBefore = probe_->runs;
    // One probe waits at a time: a wedged pool must not collect one per check.
    if (!probe_->queued) {
        auto task = apache::thrift::concurrency::FunctionRunner::create([probe = probe_] {
            std::lock_guard<std::mutex> ranLock(probe->mutex);
            probe->queued = false;
            ++probe->runs;
            probe->ran.notify_all();
        });
        try {
            threads_->add(task);
            probe_->queued = true;
        } catch (const apache::thrift::TException&) {
            return false;  // the pool is stopping
        }
    }
    if (probe_->ran.wait_for(lock, wait, [&] { return probe_->runs != runsBefore; })) {
        return true;
    }
    return calls_->finished() != finishedBefore;
}

void RpcServer::stop() {
    stopping_ = true;
    if (server_) {
        server_->stop();
        if (thread_.joinable()) {
            thread_.join();
        }
        server_.reset();
        HOST_LOG(spdlog::level::info, "RPC server on {} stopped", bound_.str());
    }
    if (socket_) {
        socket_->close();
        socket_.reset();
    }
    if (ownsSocketFile_) {
        ::unlink(bound_.path.c_str());
        ownsSocketFile_ = false;
    }
}

}  // namespace helion::host
