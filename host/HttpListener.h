#pragma once
// An HTTP listener on loopback that hands every request to a handler (the module) and sends back
// what the handler wrote.

#include <atomic>
#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <thread>

#include "host/endpoint/Endpoint.h"
#include "host/HttpExchange.h"

namespace helion::host {

struct HttpListenerOptions {
    /// A loopback TCP endpoint; port 0 lets the system choose.
    Endpoint endpoint;
    /// Larger bodies are answered 413 without reaching the handler.
    std::size_t bodyLimit = 1024 * 1024;
    std::size_t headerLimit = 16 * 1024;
    /// A connection that sends nothing for this long is closed.
    std::chrono::seconds idleTimeout{30};
    /// Connections beyond this are closed at once.
    std::size_t maxConnections = 64;
    /// How long to wait before accepting again when accept() fails (descriptors ran out).
    std::chrono::milliseconds acceptRetryPause{250};
};

class HttpListener {
public:
    using Handler = std::function<void(HttpRequest&, HttpResponse&)>;

    HttpListener(HttpListenerOptions options, Handler handler);
    ~HttpListener();

    HttpListener(const HttpListener&) = delete;
    HttpListener& operator=(const HttpListener&) = delete;

    /// Binds and listens; throws StartupError with a one-line reason.
    void bind();
    /// Accepts and serves on a background thread. Requires bind().
    void start();
    /// Stops accepting, drops open connections and joins the thread.
    void stop();

    /// The endpoint actually bound.
    const Endpoint& endpoint() const { return bound_; }

    struct Impl;

private:
    HttpListenerOptions options_;
    Endpoint bound_;
    std::unique_ptr<Impl> impl_;
    std::thread thread_;
};

}  // namespace helion::host
