// Micro benchmarks run with the shared Logger set up the way the host sets it up (level info),
// but writing into a null sink, so that logging costs what it costs in the module and no more.
#include <benchmark/benchmark.h>
#include <spdlog/sinks/null_sink.h>
#include <spdlog/spdlog.h>

#include "corvid/Logger.h"

int main(int argc, char** argv) {
    auto logger =
        std::make_shared<spdlog::logger>("bench", std::make_shared<spdlog::sinks::null_sink_mt>());
    logger->set_level(spdlog::level::trace);
    corvid::Logger::GetInstance().init(std::move(logger), spdlog::level::info);

    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) {
        return 1;
    }
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
