#pragma once
// One HTTP exchange as the module sees it: a request to read and a response to fill.

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "corvid/IRequest.h"
#include "corvid/IResponse.h"

namespace helion::host {

class HttpRequest : public corvid::IRequest {
public:
    /// target is the request target as it came ("/path?query"); it is split at the first '?'.
    HttpRequest(std::string method, const std::string& target, std::string body,
                std::vector<std::pair<std::string, std::string>> headers);

    /// Case-insensitive, as HTTP header names are.
    const char* header(const char* name) override;
    int64_t bodyLength() override { return static_cast<int64_t>(body_.size()); }
    const char* body() override { return body_.c_str(); }
    const char* query() override { return query_.c_str(); }
    const char* method() override { return method_.c_str(); }
    const char* url() override { return path_.c_str(); }

private:
    std::string method_;
    std::string path_;
    std::string query_;
    std::string body_;
    std::vector<std::pair<std::string, std::string>> headers_;
};

class HttpResponse : public corvid::IResponse {
public:
    void setStatus(int32_t code) override { status_ = code; }
    void setHeader(const char* name, const char* value) override;
    /// The text is copied whatever the flag says; the host never keeps a module's pointer.
    void setContent(const char* text, int32_t flag) override;

    /// 200 until the module says otherwise.
    int32_t status() const { return status_; }
    const std::string& content() const { return content_; }
    const std::vector<std::pair<std::string, std::string>>& headers() const { return headers_; }

private:
    int32_t status_ = 200;
    std::string content_;
    std::vector<std::pair<std::string, std::string>> headers_;
};

}  // namespace helion::host
