// The response envelope every portal call builds, and the HTTP entry with its empty route table.
#include <benchmark/benchmark.h>

#include <string>

#include "corvid/IRequest.h"
#include "corvid/IResponse.h"
#include "http/HttpRouter.h"
#include "http/ResponseStr.h"

namespace {

void BM_ResponseStr(benchmark::State& state) {
    const std::string message = "successful";
    const std::string data;
    for (auto _ : state) {
        benchmark::DoNotOptimize(corvid::responseStr(0, message, data));
    }
}
BENCHMARK(BM_ResponseStr);

// An error text with characters the writer has to escape.
void BM_ResponseStrEscaped(benchmark::State& state) {
    const std::string message = "create dir error";
    const std::string data = R"({"path":"C:\\portal\\assets","reason":"Permission denied"})";
    for (auto _ : state) {
        benchmark::DoNotOptimize(corvid::responseStr(9, message, data));
    }
}
BENCHMARK(BM_ResponseStrEscaped);

class Request : public corvid::IRequest {
public:
    const char* header(const char*) override { return nullptr; }
    int64_t bodyLength() override { return static_cast<int64_t>(body_.size()); }
    const char* body() override { return body_.c_str(); }
    const char* query() override { return ""; }
    const char* method() override { return "POST"; }
    const char* url() override { return "/SdpPromote/UpdatePortal"; }

private:
    std::string body_ = R"({"srcZip":"/tmp/p.zip","portalDir":"portal","signFile":"/tmp/p.sig"})";
};

class Response : public corvid::IResponse {
public:
    void setStatus(int32_t code) override { status = code; }
    void setHeader(const char*, const char*) override {}
    void setContent(const char* text, int32_t) override { content = text; }

    int32_t status = 0;
    const char* content = nullptr;
};

// Every request the host forwards ends here with 503.
void BM_HttpRouterApplyNoRoutes(benchmark::State& state) {
    corvid::HttpRouter router;
    Request request;
    Response response;
    for (auto _ : state) {
        router.apply(&request, &response);
        benchmark::DoNotOptimize(response.status);
    }
}
BENCHMARK(BM_HttpRouterApplyNoRoutes);

}  // namespace
