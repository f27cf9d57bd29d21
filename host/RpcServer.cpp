#include "host/RpcServer.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <thrift/concurrency/ThreadFactory.h>
#include <thrift/concurrency/ThreadManager.h>
#include <thrift/protocol/TBinaryProtocol.h>
#include <thrift/server/TServer.h>
#include <thrift/transport/TBufferTransports.h>
#include <thrift/transport/TServerSocket.h>
#include <thrift/transport/TTransportException.h>
#include <unistd.h>

#include <boost/filesystem.hpp>
#include <cerrno>
#include <cstring>
#include <stdexcept>

#include "host/HostLog.h"
#include "host/ModuleLibrary.h"

namespace helion::host {

namespace fs = boost::filesystem;
using apache::thrift::TProcessor;
using apache::thrift::transport::TTransportException;

/// A server socket bound before the module loads, so that a taken port or a live socket is
/// reported before the module is driven; the server's own listen() then finds it ready.
class PreboundServerSocket : public apache::thrift::transport::TServerSocket {
public:
    using TServerSocket::TServerSocket;

    void bindNow() {
        TServerSocket::listen();
        bound_ = true;
    }
    void listen() override {
        if (!bound_) {
            bindNow();
        }
    }
    void close() override {
        TServerSocket::close();
        bound_ = false;
    }

private:
    bool bound_ = false;
};

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
    boost::system::error_code error;
    if (!fs::exists(dir, error)) {
        fs::create_directories(dir, error);
        if (error) {
            throw StartupError("cannot create socket directory '" + dir.string() +
                               "': " + error.message());
        }
        ::chmod(dir.c_str(), 0700);
    }
    struct stat dirStat {};
    if (::stat(dir.c_str(), &dirStat) != 0 || !S_ISDIR(dirStat.st_mode)) {
        throw StartupError("socket directory '" + dir.string() + "' is not a directory");
    }
    const bool privateDir = dirStat.st_uid == ::geteuid() && (dirStat.st_mode & 077) == 0;
    if (!privateDir) {
        if (options_.requirePrivateDirectory) {
            throw StartupError("socket directory '" + dir.string() +
                               "' must be owned by this user with mode 0700");
        }
        HOST_LOG(spdlog::level::warn,
                 "socket directory '{}' can be entered by other users; the socket itself is 0600",
                 dir.string());
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
    if (bound_.kind == Endpoint::Kind::Unix) {
        prepareUnixPath();
        socket_ = std::make_shared<PreboundServerSocket>(bound_.path);
    } else {
        try {
            requireLoopback(bound_);
        } catch (const std::invalid_argument& error) {
            throw StartupError(error.what());
        }
        socket_ = std::make_shared<PreboundServerSocket>(bound_.address, bound_.port);
    }
    socket_->setRecvTimeout(options_.idleTimeoutMs);
    socket_->setSendTimeout(options_.idleTimeoutMs);
    try {
        socket_->bindNow();
    } catch (const TTransportException& error) {
        socket_.reset();
        throw StartupError("cannot listen on " + bound_.str() + ": " + error.what());
    }
    if (bound_.kind == Endpoint::Kind::Unix) {
        ownsSocketFile_ = true;
        // The directory already keeps others out; the mode says so on the socket too.
        ::chmod(bound_.path.c_str(), 0600);
    } else {
        bound_.port = static_cast<uint16_t>(socket_->getPort());
    }
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
    server_ = std::make_shared<server::TThreadPoolServer>(
        multiplexer_, socket_, std::make_shared<transport::TBufferedTransportFactory>(),
        std::make_shared<protocol::TBinaryProtocolFactory>(kMaxRpcStringBytes,
                                                           kMaxRpcContainerItems, false, true),
        threads);

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
            } catch (const std::future_error&) {
                // Already serving when it failed; the log line is all there is to say.
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

void RpcServer::stop() {
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
