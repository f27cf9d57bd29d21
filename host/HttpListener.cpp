#include "host/HttpListener.h"

#include <fcntl.h>

#include <boost/asio/dispatch.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/strand.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/version.hpp>
#include <exception>
#include <optional>

#include "host/HostLog.h"
#include "host/ListeningSocket.h"
#include "host/StartupError.h"

namespace helion::host {

namespace beast = boost::beast;
namespace http = boost::beast::http;
namespace net = boost::asio;
using tcp = boost::asio::ip::tcp;

struct HttpListener::Impl {
    Impl(const HttpListenerOptions& options, Handler handler)
        : options(options), handler(std::move(handler)) {}

    void accept();
    /// accept() failed for want of something that comes back (descriptors, memory): try later.
    void retryAccept(const beast::error_code& error);

    HttpListenerOptions options;
    Handler handler;
    // Declared before the io_context: sessions destroyed with it still count themselves out.
    std::atomic<std::size_t> connections{0};
    net::io_context io{1};
    tcp::acceptor acceptor{io};
    net::steady_timer retry{io};
    bool acceptFailing = false;
};

namespace {

class Session : public std::enable_shared_from_this<Session> {
public:
    // The owner outlives every session: sessions live in handlers of the owner's io_context.
    Session(tcp::socket socket, HttpListener::Impl* owner)
        : stream_(std::move(socket)), owner_(owner) {
        ++owner_->connections;
    }
    ~Session() { --owner_->connections; }

    void run() { read(); }

private:
    void read() {
        parser_.emplace();
        parser_->body_limit(owner_->options.bodyLimit);
        parser_->header_limit(static_cast<std::uint32_t>(owner_->options.headerLimit));
        stream_.expires_after(owner_->options.idleTimeout);
        http::async_read(stream_, buffer_, *parser_,
                         beast::bind_front_handler(&Session::onRead, shared_from_this()));
    }

    void onRead(beast::error_code error, std::size_t) {
        if (error == http::error::end_of_stream) {
            return shutdown();
        }
        if (error == http::error::body_limit) {
            return fail(http::status::payload_too_large, "Payload Too Large");
        }
        if (error == http::error::header_limit) {
            return fail(http::status::request_header_fields_too_large,
                        "Request Header Fields Too Large");
        }
        if (error) {
            if (error.category() == http::make_error_code(http::error::bad_method).category()) {
                return fail(http::status::bad_request, "Bad Request");
            }
            // Timeouts and socket errors: nobody is left to answer.
            return;
        }
        handle(parser_->release());
    }

    void handle(http::request<http::string_body> request) {
        std::vector<std::pair<std::string, std::string>> headers;
        for (const auto& field : request) {
            headers.emplace_back(std::string(field.name_string()), std::string(field.value()));
        }
        HttpRequest moduleRequest(std::string(request.method_string()),
                                  std::string(request.target()), std::move(request.body()),
                                  std::move(headers));
        HttpResponse moduleResponse;
        try {
            owner_->handler(moduleRequest, moduleResponse);
        } catch (const std::exception& error) {
            HOST_LOG(spdlog::level::err, "HTTP handler failed for '{}'; Reason: {}",
                     moduleRequest.url(), error.what());
            moduleResponse = HttpResponse();
            moduleResponse.setStatus(500);
            moduleResponse.setContent("Internal Server Error", 1);
        } catch (...) {
            moduleResponse = HttpResponse();
            moduleResponse.setStatus(500);
            moduleResponse.setContent("Internal Server Error", 1);
        }

        auto response = std::make_shared<http::response<http::string_body>>();
        response->version(request.version());
        const int status = moduleResponse.status();
        response->result(status >= 100 && status <= 999 ? static_cast<unsigned>(status) : 500u);
        response->set(http::field::server, "helion-host");
        bool typed = false;
        for (const auto& [name, value] : moduleResponse.headers()) {
            response->insert(name, value);
            typed = typed || beast::iequals(name, "Content-Type");
        }
        if (!typed) {
            response->set(http::field::content_type, "text/plain; charset=utf-8");
        }
        response->body() = moduleResponse.content();
        response->keep_alive(request.keep_alive());
        response->prepare_payload();
        send(std::move(response));
    }

    void fail(http::status status, const char* text) {
        auto response = std::make_shared<http::response<http::string_body>>(status, 11);
        response->set(http::field::server, "helion-host");
        response->set(http::field::content_type, "text/plain; charset=utf-8");
        response->body() = text;
        response->keep_alive(false);
        response->prepare_payload();
        send(std::move(response));
    }

    void send(std::shared_ptr<http::response<http::string_body>> response) {
        response_ = std::move(response);
        stream_.expires_after(owner_->options.idleTimeout);
        http::async_write(stream_, *response_,
                          beast::bind_front_handler(&Session::onWrite, shared_from_this(),
                                                    response_->need_eof()));
    }

    void onWrite(bool close, beast::error_code error, std::size_t) {
        response_.reset();
        if (error) {
            return;
        }
        if (close) {
            return shutdown();
        }
        read();
    }

    void shutdown() {
        beast::error_code ignored;
        stream_.socket().shutdown(tcp::socket::shutdown_send, ignored);
    }

    beast::tcp_stream stream_;
    HttpListener::Impl* owner_;
    beast::flat_buffer buffer_;
    std::optional<http::request_parser<http::string_body>> parser_;
    std::shared_ptr<http::response<http::string_body>> response_;
};

}  // namespace

void HttpListener::Impl::accept() {
    acceptor.async_accept(io, [this](beast::error_code error, tcp::socket socket) {
        if (error == net::error::operation_aborted || !acceptor.is_open()) {
            return;
        }
        // A connection that went away before it was taken costs nothing to skip.
        if (error == net::error::connection_aborted || error == net::error::interrupted ||
            error == net::error::try_again) {
            return accept();
        }
        if (error) {
            return retryAccept(error);
        }
        if (acceptFailing) {
            acceptFailing = false;
            HOST_LOG(spdlog::level::info, "accepting HTTP connections again");
        }
        // Programs the module starts must not inherit connections.
        ::fcntl(socket.native_handle(), F_SETFD, FD_CLOEXEC);
        if (connections.load() >= options.maxConnections) {
            beast::error_code ignored;
            socket.close(ignored);
        } else {
            std::make_shared<Session>(std::move(socket), this)->run();
        }
        accept();
    });
}

void HttpListener::Impl::retryAccept(const beast::error_code& error) {
    if (!acceptFailing) {
        acceptFailing = true;
        HOST_LOG(spdlog::level::err, "HTTP accept() failed: {}; retrying every {} ms",
                 error.message(), options.acceptRetryPause.count());
    }
    retry.expires_after(options.acceptRetryPause);
    retry.async_wait([this](beast::error_code waited) {
        if (!waited && acceptor.is_open()) {
            accept();
        }
    });
}

HttpListener::HttpListener(HttpListenerOptions options, Handler handler)
    : options_(std::move(options)),
      bound_(options_.endpoint),
      impl_(std::make_unique<Impl>(options_, std::move(handler))) {}

HttpListener::~HttpListener() {
    stop();
}

void HttpListener::bind() {
    try {
        requireLoopback(bound_);
    } catch (const std::invalid_argument& error) {
        throw StartupError(std::string("HTTP: ") + error.what());
    }
    const std::string where = bound_.address + ":" + std::to_string(bound_.port);
    beast::error_code error;
    bool created = false;
    auto fd = listenTcp(bound_, error, created);
    if (fd) {
        const auto protocol = net::ip::make_address(bound_.address).is_v4() ? tcp::v4() : tcp::v6();
        impl_->acceptor.assign(protocol, fd.get(), error);
    }
    if (error) {
        throw StartupError("cannot listen for HTTP on " + where + ": " + error.message());
    }
    fd.release();
}

void HttpListener::start() {
    if (thread_.joinable() || !impl_->acceptor.is_open()) {
        return;
    }
    impl_->accept();
    thread_ = std::thread([impl = impl_.get()] {
        try {
            impl->io.run();
        } catch (const std::exception& error) {
            HOST_LOG(spdlog::level::err, "HTTP listener stopped; Reason: {}", error.what());
        }
    });
    HOST_LOG(spdlog::level::info, "serving HTTP on {}:{}", bound_.address, bound_.port);
}

void HttpListener::stop() {
    if (!impl_) {
        return;
    }
    net::post(impl_->io, [impl = impl_.get()] {
        beast::error_code ignored;
        impl->acceptor.close(ignored);
        impl->retry.cancel();
    });
    impl_->io.stop();
    if (thread_.joinable()) {
        thread_.join();
    }
    // Destroying the io_context destroys the pending handlers and with them the open sessions.
    impl_.reset();
}

}  // namespace helion::host
