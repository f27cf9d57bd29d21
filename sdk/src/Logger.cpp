#include "corvid/Logger.h"

#include <exception>
#include <iostream>

namespace corvid {

namespace {
// spdlog swallows what its sinks throw; hand it back to the caller, whose logging guard reports
// it with the module, function and line that logged.
void rethrowSinkFailure(const std::string& message) {
    if (std::exception_ptr current = std::current_exception()) {
        std::rethrow_exception(current);
    }
    std::cerr << message << std::endl;
}
}  // namespace

Logger& Logger::GetInstance() {
    static Logger instance;
    return instance;
}

Logger* Logger::GetInstancePtr() {
    return &GetInstance();
}

void Logger::init(std::shared_ptr<spdlog::logger> sink_logger, Level level) {
    if (!sink_logger) {
        markUninitialised();
        return;
    }
    sink_logger->set_error_handler(rethrowSinkFailure);
    sink_.store(sink_logger.get(), std::memory_order_release);
    installed_.push_back(std::move(sink_logger));
    setLevel(level);
    initialised_.store(true, std::memory_order_release);
}

void Logger::markUninitialised() {
    initialised_.store(false, std::memory_order_release);
}

void Logger::setLevel(Level level) {
    level_.store(level, std::memory_order_relaxed);
}

std::string Logger::GetFmt(const char* module, const char* function, uint64_t line,
                           std::string_view text) const {
    std::string out;
    out.reserve(text.size() + 48);
    out += '[';
    out += module ? module : "";
    out += ':';
    out += function ? function : "";
    out += ':';
    out += std::to_string(line);
    out += "]: ";
    out += text;
    return out;
}

void Logger::write(Level level, std::string_view line) {
    spdlog::logger* sink = sink_.load(std::memory_order_acquire);
    if (sink != nullptr) {
        sink->log(spdlog::source_loc{}, level, spdlog::string_view_t(line.data(), line.size()));
    }
}

}  // namespace corvid
