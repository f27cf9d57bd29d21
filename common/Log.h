#pragma once
// The module's call-site guard around the host's Logger: a failure inside logging is written to
// stderr and never reaches the code that logged.

#include <cstdint>
#include <exception>
#include <utility>

#include "corvid/Logger.h"

namespace corvid::logging {

/// Module tag of every line this module writes.
inline constexpr const char* kModuleTag = "HelionPromote";

namespace detail {
/// The shared Logger, asked for once: the host library's accessor is a call through the PLT,
/// which would otherwise be most of what a dropped line costs.
inline Logger* sharedLogger() noexcept {
    static Logger* const logger = Logger::GetInstancePtr();
    return logger;
}

void reportSpdlogFailure(const char* module, const char* function, uint64_t line,
                         const spdlog::spdlog_ex& error) noexcept;
void reportStdFailure(const char* module, const char* function, uint64_t line,
                      const std::exception& error) noexcept;
void reportUnknownFailure() noexcept;
}  // namespace detail

/// Logs through Logger::GetInstancePtr(); whatever logging throws is reported on stderr and
/// dropped.
template <typename... Args>
void guardedLog(spdlog::level::level_enum level, const char* module, const char* function,
                uint64_t line, const char* fmt, Args&&... args) noexcept {
    try {
        detail::sharedLogger()->log(level, module, function, line, fmt,
                                    std::forward<Args>(args)...);
    } catch (const spdlog::spdlog_ex& error) {
        detail::reportSpdlogFailure(module, function, line, error);
    } catch (const std::exception& error) {
        detail::reportStdFailure(module, function, line, error);
    } catch (...) {
        detail::reportUnknownFailure();
    }
}

}  // namespace corvid::logging

// The format is part of the variadic arguments so that a call without placeholders stays valid
// under -Wpedantic.

/// Logs under the enclosing function's name and the current line: HP_LOG(level, fmt, args...).
#define HP_LOG(level, ...)                                                                  \
    ::corvid::logging::guardedLog(level, ::corvid::logging::kModuleTag, __func__, __LINE__, \
                                  __VA_ARGS__)

/// Logs under a given function name and line, for lines whose place is part of the log
/// vocabulary: HP_LOG_AT(level, function, line, fmt, args...).
#define HP_LOG_AT(level, function, line, ...) \
    ::corvid::logging::guardedLog(level, ::corvid::logging::kModuleTag, function, line, __VA_ARGS__)
