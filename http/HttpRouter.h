#pragma once
// Dispatches the HTTP requests the host forwards to the module: first matching route by method
// and path, body checked against the route's schema, 503 when nothing matches.

#include <cctype>
#include <cstdint>
#include <exception>
#include <functional>
#include <map>
#include <regex>
#include <string>
#include <system_error>
#include <tuple>
#include <vector>

#include "corvid/IRequest.h"
#include "corvid/IResponse.h"
#include "http/HttpJsonChecker.h"

namespace corvid {

class HttpRouter {
public:
    enum HttpMethod : int32_t {
        Unknown = 0,
        Get = 1,
        Head = 2,
        Post = 3,
        Put = 4,
        AnyMethod = 5,  // tried for every method, in the second pass
        CatchAll = 6,   // takes any request, in the third pass
    };
    using Handler = std::function<void(IRequest*, IResponse*)>;
    using Route = std::tuple<HttpMethod, std::string, std::regex, Handler>;

    /// Content flag passed with every body the router writes.
    static constexpr int32_t kContentFlag = 1;

    HttpRouter() = default;
    virtual ~HttpRouter() = default;

    /// "get", "head", "post", "put" to their methods.
    static const std::map<std::string, HttpMethod>& dictionary();
    /// Backslashes become "/", every other character is lower-cased.
    static std::string transform(const std::string& text);
    /// The method for a request's method text, in any letter case; Unknown when not listed.
    static HttpMethod method(const std::string& text);

    /// Appends a route; its pattern is matched against the whole normalised path, its body
    /// checked against schema (none: any JSON body). Dispatch is first-match in this order.
    void addRoute(HttpMethod method, const std::string& key, const std::string& pattern,
                  Handler handler, std::string schema = std::string());

    /// The route keys, in route order.
    std::vector<std::string> getKeys() const;

    /// Dispatches one request. A thrown string answers 400, an error code or standard exception
    /// 500 with its text, anything else 500; the exception then goes on to the caller.
    template <typename Request, typename Response>
    void apply(Request* req, Response* resp);

private:
    template <typename Request>
    bool dispatch(Request* req, const Handler** chosen) const;

    HttpJsonChecker checker_;
    std::vector<Route> routes_;
};

namespace http_detail {
inline const char* orEmpty(const char* text) { return text != nullptr ? text : ""; }
}  // namespace http_detail

template <typename Request>
bool HttpRouter::dispatch(Request* req, const Handler** chosen) const {
    const std::string path = transform(http_detail::orEmpty(req->url()));
    const HttpMethod code = method(http_detail::orEmpty(req->method()));
    const char* body = http_detail::orEmpty(req->body());
    if (code != Unknown) {
        for (const auto& [routeMethod, key, pattern, handler] : routes_) {
            if (routeMethod == code && std::regex_match(path, pattern)) {
                checker_.apply(key, body);
                *chosen = &handler;
                return true;
            }
        }
    }
    for (const auto& [routeMethod, key, pattern, handler] : routes_) {
        if (routeMethod != AnyMethod) {
            continue;
        }
        // The body is checked before the path on purpose: every AnyMethod route visited checks.
        checker_.apply(key, body);
        if (std::regex_match(path, pattern)) {
            *chosen = &handler;
            return true;
        }
    }
    for (const auto& route : routes_) {
        if (std::get<0>(route) == CatchAll) {
            *chosen = &std::get<3>(route);
            return true;
        }
    }
    return false;
}

template <typename Request, typename Response>
void HttpRouter::apply(Request* req, Response* resp) {
    try {
        const Handler* chosen = nullptr;
        if (dispatch(req, &chosen)) {
            (*chosen)(req, resp);  // an empty handler throws bad_function_call
            return;
        }
        resp->setStatus(503);
        resp->setContent("Service Unavailable", kContentFlag);
    } catch (const std::error_code& error) {
        resp->setStatus(500);
        resp->setContent(error.message().c_str(), kContentFlag);
        throw;
    } catch (const std::exception& error) {
        resp->setStatus(500);
        resp->setContent(error.what(), kContentFlag);
        throw;
    } catch (const std::string& text) {
        resp->setStatus(400);
        resp->setContent(text.c_str(), kContentFlag);
        throw;
    } catch (...) {
        resp->setStatus(500);
        resp->setContent("Unknown Internal ServerError", kContentFlag);
        throw;
    }
}

}  // namespace corvid
