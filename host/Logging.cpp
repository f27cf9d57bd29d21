#include "host/Logging.h"

#include <spdlog/sinks/rotating_file_sink.h>
#include <spdlog/sinks/stdout_sinks.h>
#include <spdlog/spdlog.h>

#include <array>
#include <memory>
#include <utility>
#include <vector>

#include "corvid/Logger.h"

namespace helion::host {

std::optional<spdlog::level::level_enum> parseLevel(const std::string& name) {
    static const std::array<std::pair<const char*, spdlog::level::level_enum>, 7> names{{
        {"trace", spdlog::level::trace},
        {"debug", spdlog::level::debug},
        {"info", spdlog::level::info},
        {"warn", spdlog::level::warn},
        {"err", spdlog::level::err},
        {"critical", spdlog::level::critical},
        {"off", spdlog::level::off},
    }};
    for (const auto& [text, level] : names) {
        if (name == text) {
            return level;
        }
    }
    return std::nullopt;
}

void initLogging(const LoggingOptions& options) {
    std::vector<spdlog::sink_ptr> sinks;
    sinks.push_back(std::make_shared<spdlog::sinks::stderr_sink_mt>());
    if (!options.file.empty()) {
        sinks.push_back(std::make_shared<spdlog::sinks::rotating_file_sink_mt>(
            options.file, options.fileMaxBytes, options.fileCount));
    }
    auto logger = std::make_shared<spdlog::logger>("helion-host", sinks.begin(), sinks.end());
    logger->set_pattern("%Y-%m-%d %H:%M:%S.%e %^%l%$ [%t] %v");
    // The shared Logger filters; the spdlog logger passes on whatever reaches it.
    logger->set_level(spdlog::level::trace);
    logger->flush_on(spdlog::level::trace);
    corvid::Logger::GetInstance().init(std::move(logger), options.level);
}

}  // namespace helion::host
