#include "http/HttpRouter.h"

namespace corvid {

const std::map<std::string, HttpRouter::HttpMethod>& HttpRouter::dictionary() {
    static const std::map<std::string, HttpMethod> methods{
        {"get", Get}, {"head", Head}, {"post", Post}, {"put", Put}};
    return methods;
}

std::string HttpRouter::transform(const std::string& text) { return HttpJsonChecker::transform(text); }

HttpRouter::HttpMethod HttpRouter::method(const std::string& text) {
    const auto& methods = dictionary();
    const auto found = methods.find(transform(text));
    return found != methods.end() ? found->second : Unknown;
}

void HttpRouter::addRoute(HttpMethod method, const std::string& key, const std::string& pattern,
                          Handler handler, std::string schema) {
    if (!schema.empty()) {
        checker_.addSchema(key, std::move(schema));
    }
    routes_.emplace_back(method, key, std::regex(pattern), std::move(handler));
}

std::vector<std::string> HttpRouter::getKeys() const {
    std::vector<std::string> keys;
    keys.reserve(routes_.size());
    for (const auto& route : routes_) {
        keys.push_back(std::get<1>(route));
    }
    return keys;
}

}  // namespace corvid
