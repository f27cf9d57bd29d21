#include "host/Host.h"

#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

#include "host/HostLog.h"
#include "host/HttpListener.h"
#include "host/ModuleLibrary.h"
#include "host/RpcServer.h"
#include "host/StartupError.h"

namespace helion::host {

namespace {

/// A module cannot route more than this; anything longer is a missing terminator.
constexpr std::size_t kMaxRoutes = 4096;

/// The capacities text is pretty-printed JSON; one log line reads better compact.
std::string compactJson(const char* text) {
    if (text == nullptr) {
        return "(null)";
    }
    rapidjson::Document document;
    document.Parse(text);
    if (document.HasParseError()) {
        return text;
    }
    rapidjson::StringBuffer buffer;
    rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
    document.Accept(writer);
    return buffer.GetString();
}

}  // namespace

Host::Host(HostOptions options) : options_(std::move(options)) {}

Host::~Host() {
    shutdown();
}

const Endpoint& Host::rpcEndpoint() const {
    static const Endpoint none;
    return rpc_ ? rpc_->endpoint() : none;
}

std::optional<Endpoint> Host::httpEndpoint() const {
    if (!http_) {
        return std::nullopt;
    }
    return http_->endpoint();
}

bool Host::rpcAnswers(std::chrono::milliseconds wait) {
    return rpc_ && rpc_->answers(wait);
}

std::vector<CallTracker::Running> Host::runningCalls() const {
    return rpc_ ? rpc_->calls().running() : std::vector<CallTracker::Running>{};
}

void Host::start() {
    const std::string path =
        options_.modulePath.empty() ? findDefaultModule() : options_.modulePath;
    library_ = std::make_unique<ModuleLibrary>(path);
    HOST_LOG(spdlog::level::info, "opened module library '{}'", path);

    // Endpoints are taken before the module is driven, so a taken port costs no load and unload.
    takeEndpoints();

    module_ = library_->createInstance();
    if (module_ == nullptr) {
        throw StartupError("module '" + path + "' returned no instance from CreateInstance");
    }
    logIdentity();

    context_.offer<corvid::IRpcServer>(corvid::kRpcServerService, rpc_.get());
    context_.offer<corvid::IEventBus>(corvid::kEventBusService, &eventBus_);
    loaded_ = true;
    module_->moduleWillLoadFinished(&context_);
    module_->moduleDidLoadFinished();
    if (rpc_->services().empty()) {
        HOST_LOG(spdlog::level::warn, "the module registered no RPC service");
    }

    try {
        rpc_->start();
        if (http_) {
            http_->start();
        }
    } catch (...) {
        shutdown();
        throw;
    }
    for (const auto& [topic, content] : options_.events) {
        deliverEvent(topic, content);
    }
}

void Host::takeEndpoints() {
    RpcServerOptions rpcOptions;
    if (options_.listen) {
        rpcOptions.endpoint = *options_.listen;
    } else {
        rpcOptions.endpoint.kind = Endpoint::Kind::Unix;
        rpcOptions.endpoint.path = defaultSocketPath();
        rpcOptions.unixSocket.requirePrivateDirectory = true;
    }
    rpcOptions.listenFd = options_.listenFd;
    rpcOptions.unixSocket.group = options_.socketGroup;
    rpcOptions.workers = options_.workers;
    rpcOptions.requestTimeoutMs = options_.requestTimeoutMs;
    rpcOptions.onServingEnded = options_.onServingEnded;
    rpc_ = std::make_unique<RpcServer>(rpcOptions);
    rpc_->bind();
    if (options_.http) {
        HttpListenerOptions httpOptions;
        httpOptions.endpoint = *options_.http;
        http_ = std::make_unique<HttpListener>(
            httpOptions, [this](HttpRequest& request, HttpResponse& response) {
                module_->moduleDidRecivedHttpMessage(&request, &response);
            });
        http_->bind();
    }
}

void Host::logIdentity() {
    HOST_LOG(spdlog::level::info, "module GUID: {}",
             module_->moduleGuid() ? module_->moduleGuid() : "(null)");
    HOST_LOG(spdlog::level::info, "module priority: {}", module_->modulePriority());
    HOST_LOG(spdlog::level::info, "module capacities: {}",
             compactJson(module_->moduleCapacities()));
    std::string routes;
    const char** keys = module_->moduleRouters();
    std::size_t count = 0;
    for (; keys != nullptr && count < kMaxRoutes && keys[count] != nullptr; ++count) {
        routes += (count == 0 ? "" : ", ") + std::string(keys[count]);
    }
    HOST_LOG(spdlog::level::info, "module routes ({}): [{}]", count, routes);
}

bool Host::deliverEvent(const std::string& topic, const std::string& content) {
    if (!loaded_ || module_ == nullptr) {
        return false;
    }
    HOST_LOG(spdlog::level::info, "delivering event [{}] to the module", topic);
    module_->moduleDidRecivedEventMessage(topic.c_str(), content.c_str());
    return true;
}

void Host::shutdown() {
    // Nothing may reach the module once it starts unloading.
    if (http_) {
        http_->stop();
        http_.reset();
    }
    if (rpc_) {
        rpc_->stop();
    }
    unloadModule();
    // The multiplexer holds the module's processors; release them while the library is open.
    rpc_.reset();
}

void Host::unloadModule() {
    if (!loaded_) {
        return;
    }
    loaded_ = false;
    module_->moduleWillUnloadFinished();
    module_->moduleDidUnloadFinished();
    library_->freeInstance(module_);
    module_ = nullptr;
    HOST_LOG(spdlog::level::info, "module unloaded");
}

}  // namespace helion::host
