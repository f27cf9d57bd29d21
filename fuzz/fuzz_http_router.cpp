// Arbitrary method, path and body through a router with a few routes: every request ends in a
// status and a body, and only the documented exception kinds leave apply().
#include <cstddef>
#include <cstdint>
#include <exception>
#include <string>
#include <system_error>

#include "http/HttpRouter.h"
#include "support/FakeHttp.h"

namespace {

corvid::HttpRouter& router() {
    static corvid::HttpRouter instance = [] {
        corvid::HttpRouter built;
        built.addRoute(
            corvid::HttpRouter::Post, "/api/update", "/api/update",
            [](corvid::IRequest*, corvid::IResponse* resp) { resp->setStatus(200); },
            R"({"type":"object","required":["portalDir"]})");
        built.addRoute(
            corvid::HttpRouter::Get, "/api/items", "/api/items/[0-9]+",
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
    helion::test::FakeRequest request(method, path, body);
    helion::test::FakeResponse response;
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
