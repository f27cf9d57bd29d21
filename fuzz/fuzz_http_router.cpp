// Arbitrary method, path and body through a router with a few routes: every request ends in a
// status and a body, and only the documented exception kinds leave apply().
#include <cstddef>
#include <cstdint>
#include <exception>
#include <string>
#include <system_error>

#include "http/HttpRouter.h"

namespace {

class Request : public corvid::IRequest {
public:
    Request(std::string method, std::string url, std::string body)
        : method_(std::move(method)), url_(std::move(url)), body_(std::move(body)) {}
    const char* header(const char*) override { return nullptr; }
    int64_t bodyLength() override { return static_cast<int64_t>(body_.size()); }
    const char* body() override { return body_.c_str(); }
    const char* query() override { return ""; }
    const char* method() override { return method_.c_str(); }
    const char* url() override { return url_.c_str(); }

private:
    std::string method_, url_, body_;
};

class Response : public corvid::IResponse {
public:
    void setStatus(int32_t code) override { status = code; }
    void setHeader(const char*, const char*) override {}
    void setContent(const char* text, int32_t) override { content = text; }
    int32_t status = 0;
    std::string content;
};

corvid::HttpRouter& router() {
    static corvid::HttpRouter instance = [] {
        corvid::HttpRouter built;
        built.addRoute(corvid::HttpRouter::Post, "/api/update", "/api/update",
                       [](corvid::IRequest*, corvid::IResponse* resp) { resp->setStatus(200); },
                       R"({"type":"object","required":["portalDir"]})");
        built.addRoute(corvid::HttpRouter::Get, "/api/items", "/api/items/[0-9]+",
                       [](corvid::IRequest*, corvid::IResponse*) { throw std::string("bad item"); });
        built.addRoute(corvid::HttpRouter::AnyMethod, "/api/any", "/api/any.*",
                       [](corvid::IRequest*, corvid::IResponse*) { throw 42; });
        return built;
    }();
    return instance;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    // Three NUL-separated fields: method, path, body.
    const std::string input(reinterpret_cast<const char*>(data), size);
    const auto first = input.find('\0');
    const auto second = first == std::string::npos ? first : input.find('\0', first + 1);
    const std::string method = input.substr(0, first);
    const std::string path =
        first == std::string::npos ? "" : input.substr(first + 1, second - first - 1);
    const std::string body = second == std::string::npos ? "" : input.substr(second + 1);
    Request request(method, path, body);
    Response response;
    try {
        router().apply(&request, &response);
    } catch (...) {
        if (response.status == 0) {
            __builtin_trap();  // an exception must have been answered first
        }
        return 0;
    }
    if (response.status == 0) {
        __builtin_trap();
    }
    return 0;
}
