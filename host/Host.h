#pragma once
// The reference host: loads a module, offers it "RpcServer" and "EventBus", drives its lifecycle
// and serves what it registers.

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "corvid/IModule.h"
#include "host/CallTracker.h"
#include "host/EventBus.h"
#include "host/RuntimeContext.h"
#include "host/endpoint/Endpoint.h"

namespace helion::host {

class ModuleLibrary;
class RpcServer;
class HttpListener;

struct HostOptions {
    /// The module library; empty means the default location (see findDefaultModule()).
    std::string modulePath;
    /// Where RPC is served; unset means the per-user default socket.
    std::optional<Endpoint> listen;
    /// A listening socket from the service manager; takes the place of listen when set.
    int listenFd = -1;
    /// Group the Unix socket is given to (mode 0660).
    std::optional<gid_t> socketGroup;
    std::size_t workers = 8;
    /// How long a whole request may take to arrive from its first byte.
    int requestTimeoutMs = 30000;
    /// Called when RPC serving ends without shutdown() (from the serving thread).
    std::function<void()> onServingEnded;
    /// Loopback HTTP listener forwarding to the module, when set.
    std::optional<Endpoint> http;
    /// Events delivered to the module once it is loaded, in order.
    std::vector<std::pair<std::string, std::string>> events;
};

class Host {
public:
    explicit Host(HostOptions options);
    /// Shuts down if still running.
    ~Host();

    Host(const Host&) = delete;
    Host& operator=(const Host&) = delete;

    /// Opens the module, takes the endpoints, drives will-load and did-load, starts serving and
    /// delivers the start-up events. Throws StartupError; the module is then unloaded again if
    /// it had been loaded.
    void start();
    /// Stops serving, then drives will-unload and did-unload and hands the module back.
    void shutdown();

    /// Delivers an event to the module; false when no module is loaded.
    bool deliverEvent(const std::string& topic, const std::string& content);

    /// Whether RPC workers still get through their work (see RpcServer::answers).
    bool rpcAnswers(std::chrono::milliseconds wait);
    /// The RPC calls running now.
    std::vector<CallTracker::Running> runningCalls() const;

    EventBus& eventBus() { return eventBus_; }
    corvid::IModule* module() const { return module_; }
    const Endpoint& rpcEndpoint() const;
    std::optional<Endpoint> httpEndpoint() const;

private:
    /// Binds the RPC endpoint (or adopts the handed-over socket) and the HTTP one, if any.
    void takeEndpoints();
    void logIdentity();
    void unloadModule();

    HostOptions options_;
    // Declared first so it is closed last: the servers hold code of the module.
    std::unique_ptr<ModuleLibrary> library_;
    EventBus eventBus_;
    RuntimeContext context_;
    std::unique_ptr<RpcServer> rpc_;
    std::unique_ptr<HttpListener> http_;
    corvid::IModule* module_ = nullptr;
    bool loaded_ = false;
};

}  // namespace helion::host
