#pragma once
// A request and a response as the host would hand them to a module, kept in plain members.

#include <cstdint>
#include <string>

#include "corvid/IRequest.h"
#include "corvid/IResponse.h"

namespace helion::test {

struct FakeRequest : corvid::IRequest {
    FakeRequest(std::string m, std::string u, std::string b = std::string())
        : method_(std::move(m)), url_(std::move(u)), body_(std::move(b)) {}
    const char* header(const char*) override { return nullptr; }
    int64_t bodyLength() override { return static_cast<int64_t>(body_.size()); }
    const char* body() override { return body_.c_str(); }
    const char* query() override { return ""; }
    const char* method() override { return method_.c_str(); }
    const char* url() override { return url_.c_str(); }
    std::string method_, url_, body_;
};

struct FakeResponse : corvid::IResponse {
    void setStatus(int32_t code) override { status = code; }
    void setHeader(const char*, const char*) override {}
    void setContent(const char* text, int32_t flag) override { content = text, contentFlag = flag; }
    int32_t status = 0;
    std::string content;
    int32_t contentFlag = -1;
};

}  // namespace helion::test
