#include "host/HttpExchange.h"

#include <strings.h>

namespace helion::host {

HttpRequest::HttpRequest(std::string method, const std::string& target, std::string body,
                         std::vector<std::pair<std::string, std::string>> headers)
    : method_(std::move(method)), body_(std::move(body)), headers_(std::move(headers)) {
    const auto mark = target.find('?');
    path_ = target.substr(0, mark);
    if (mark != std::string::npos) {
        query_ = target.substr(mark + 1);
    }
}

const char* HttpRequest::header(const char* name) {
    if (name == nullptr) {
        return nullptr;
    }
    for (const auto& [key, value] : headers_) {
        if (::strcasecmp(key.c_str(), name) == 0) {
            return value.c_str();
        }
    }
    return nullptr;
}

void HttpResponse::setHeader(const char* name, const char* value) {
    if (name == nullptr || name[0] == '\0') {
        return;
    }
    headers_.emplace_back(name, value != nullptr ? value : "");
}

void HttpResponse::setContent(const char* text, int32_t) {
    content_ = text != nullptr ? text : "";
}

}  // namespace helion::host
