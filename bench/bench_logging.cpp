// Cost of a log statement through the module's guard and the shared Logger.
#include <benchmark/benchmark.h>

#include <string>

#include "common/Log.h"

namespace {

// A dropped line must cost one level comparison: the extraction loop has one per entry.
void BM_LogBelowLevel(benchmark::State& state) {
    const std::string name = "portal/assets/js/app.0123456789abcdef.js";
    for (auto _ : state) {
        HP_LOG(spdlog::level::debug, "Extracting file:{}", name);
        benchmark::ClobberMemory();
    }
}
BENCHMARK(BM_LogBelowLevel);

// A written line: format, decoration and the hand-over to spdlog, whose sink drops it.
void BM_LogAtLevelNullSink(benchmark::State& state) {
    const std::string zip = "/var/tmp/portal-update/portal-2.2.16.1.zip";
    for (auto _ : state) {
        HP_LOG(spdlog::level::info, "srcZip:{}, signFile:{} after to local8bit", zip, zip);
    }
}
BENCHMARK(BM_LogAtLevelNullSink);

// An info line longer than the cap is cut before it is written.
void BM_LogLongInfoLineCut(benchmark::State& state) {
    const std::string body(4096, 'x');
    for (auto _ : state) {
        HP_LOG(spdlog::level::info, "body:{}", body);
    }
}
BENCHMARK(BM_LogLongInfoLineCut);

}  // namespace
