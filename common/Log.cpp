#include "common/Log.h"

#include <iostream>

namespace corvid::logging::detail {

void reportSpdlogFailure(const char* module, const char* function, uint64_t line,
                         const spdlog::spdlog_ex& error) noexcept {
    std::cerr << "sdplog exception[" << module << ":" << function << ":" << line
              << "]: " << error.what() << std::endl;
}

void reportStdFailure(const char* module, const char* function, uint64_t line,
                      const std::exception& error) noexcept {
    std::cerr << "[" << module << ":" << function << ":" << line << "]: " << error.what()
              << std::endl;
}

void reportUnknownFailure() noexcept { std::cerr << "Unknown excepiton When logger" << std::endl; }

}  // namespace corvid::logging::detail
