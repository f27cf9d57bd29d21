#include "host/RpcServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <thrift/concurrency/FunctionRunner.h>
#include <thrift/concurrency/ThreadFactory.h>
#include <thrift/concurrency/ThreadManager.h>
#include <thrift/protocol/TBinaryProtocol.h>
#include <thrift/server/TServer.h>
#include <thrift/transport/TBufferTransports.h>
#include <unistd.h>

#include <boost/filesystem.hpp>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <stdexcept>

#include "host/HostLog.h"
#include "host/RequestDeadline.h"
#include "host/ServerSocket.h"
#include "host/StartupError.h"
#include "rpc/RpcLimits.h"

namespace helion::host {

namespace fs = boost::filesystem;
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

enum class SocketState { Live, Stale, Unknown };

SocketState probeUnixSocket(const std::string& path, int& error) {
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        error = errno;
        return SocketState::Unknown;
    }
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, path.c_str(), sizeof(address.sun_path) - 1);
    const int rc = ::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address));
    error = rc == 0 ? 0 : errno;
    ::close(fd);
    if (rc == 0) {
        return SocketState::Live;
    }
    return error == ECONNREFUSED ? SocketState::Stale : SocketState::Unknown;
}

/// Where a handed-over listening socket listens.
Endpoint endpointOf(int fd) {
    sockaddr_storage storage{};
    socklen_t length = sizeof(storage);
    if (::getsockname(fd, reinterpret_cast<sockaddr*>(&storage), &length) != 0) {
        throw StartupError(std::string("the handed-over socket has no address: ") +
                           std::strerror(errno));
    }
    Endpoint endpoint;
    if (storage.ss_family == AF_UNIX) {
        const auto* address = reinterpret_cast<const sockaddr_un*>(&storage);
        endpoint.kind = Endpoint::Kind::Unix;
        endpoint.path.assign(address->sun_path,
                             strnlen(address->sun_path, sizeof(address->sun_path)));
        return endpoint;
    }
    char text[INET6_ADDRSTRLEN] = {};
    endpoint.kind = Endpoint::Kind::Tcp;
    if (storage.ss_family == AF_INET) {
        const auto* address = reinterpret_cast<const sockaddr_in*>(&storage);
        ::inet_ntop(AF_INET, &address->sin_addr, text, sizeof(text));
        endpoint.port = ntohs(address->sin_port);
    } else if (storage.ss_family == AF_INET6) {
        const auto* address = reinterpret_cast<const sockaddr_in6*>(&storage);
        ::inet_ntop(AF_INET6, &address->sin6_addr, text, sizeof(text));
        endpoint.port = ntohs(address->sin6_port);
    } else {
        throw StartupError("the handed-over socket is neither a Unix nor a TCP socket");
    }
    endpoint.address = text;
    return endpoint;
}

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

void RpcServer::prepareUnixPath() {
    const fs::path path(bound_.path);
    const fs::path dir = path.has_parent_path() ? path.parent_path() : fs::path(".");
    struct stat dirStat {};
    if (::lstat(dir.c_str(), &dirStat) != 0 && errno == ENOENT) {
        boost::system::error_code error;
        if (dir.has_parent_path()) {
            fs::create_directories(dir.parent_path(), error);
        }
        // Created private, not chmod-ed after: there is no moment in which others may enter.
        if (error || (::mkdir(dir.c_str(), 0700) != 0 && errno != EEXIST)) {
            throw StartupError("cannot create socket directory '" + dir.string() +
                               "': " + (error ? error.message() : std::strerror(errno)));
        }
    }
    // lstat: a link to a private directory is not one; whoever made the link chose the target.
    if (::lstat(dir.c_str(), &dirStat) != 0) {
        throw StartupError("cannot check socket directory '" + dir.string() +
                           "': " + std::strerror(errno));
    }
    const bool link = S_ISLNK(dirStat.st_mode);
    if (!link && !S_ISDIR(dirStat.st_mode)) {
        throw StartupError("socket directory '" + dir.string() + "' is not a directory");
    }
    // The socket's group may need to enter the directory; nobody else may.
    const mode_t groupBits =
        options_.socketGroup && dirStat.st_gid == *options_.socketGroup ? 027 : 077;
    const bool privateDir =
        !link && dirStat.st_uid == ::geteuid() && (dirStat.st_mode & groupBits) == 0;
    if (!privateDir) {
        if (options_.requirePrivateDirectory) {
            throw StartupError("socket directory '" + dir.string() +
                               "' must be owned by this user with mode 0700 and not be a "
                               "symbolic link");
        }
        HOST_LOG(spdlog::level::warn,
                 "socket directory '{}' can be entered by other users; the socket itself is {}",
                 dir.string(), options_.socketGroup ? "0660" : "0600");
    }

    struct stat existing {};
    if (::lstat(path.c_str(), &existing) != 0) {
        return;
    }
    if (!S_ISSOCK(existing.st_mode)) {
        throw StartupError("'" + path.string() + "' exists and is not a socket; not replacing it");
    }
    int probeError = 0;
    switch (probeUnixSocket(path.string(), probeError)) {
        case SocketState::Live:
            throw StartupError("another server is already listening on '" + path.string() + "'");
        case SocketState::Stale:
            HOST_LOG(spdlog::level::info, "replacing stale socket '{}' left by a dead server",
                     path.string());
            if (::unlink(path.c_str()) != 0) {
                throw StartupError("cannot remove stale socket '" + path.string() +
                                   "': " + std::strerror(errno));
            }
            return;
        case SocketState::Unknown:
            throw StartupError("cannot check socket '" + path.string() +
                               "': " + std::strerror(probeError));
    }
}

void RpcServer::bind() {
    if (socket_) {
        return;
    }
    if (options_.workers == 0) {
        throw StartupError("the RPC server needs at least one worker");
    }
    int fd = options_.listenFd;
    if (fd >= 0) {
        bound_ = endpointOf(fd);
    } else if (bound_.kind == Endpoint::Kind::Unix) {
        prepareUnixPath();
        fd = listenUnix(bound_.path, options_.socketGroup);
        ownsSocketFile_ = true;
    } else {
        try {
            requireLoopback(bound_);
        } catch (const std::invalid_argument& error) {
            throw StartupError(error.what());
        }
        fd = listenTcp(bound_.address, bound_.port);
    }
    ServerSocketOptions socketOptions;
    socketOptions.maxConnections = options_.workers + options_.queue;
    socketOptions.recvTimeoutMs = options_.idleTimeoutMs;
    socketOptions.sendTimeoutMs = options_.idleTimeoutMs;
    socket_ = std::make_shared<ServerSocket>(fd, socketOptions);
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
