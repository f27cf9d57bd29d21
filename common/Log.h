#pragma once
// The module's call-site guard around the host's Logger: a failure inside logging is written to
// stderr and never reaches the code that logged.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <string_view>
#include <type_traits>
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

/// Text that came from outside (request fields, paths, archive entry names, command output) as it
/// is logged: control characters are written as escapes, so that no caller can end a log line
/// and forge the next one, and at most kMaxLoggedText bytes of it are written, followed by how
/// many bytes were left out, so that no caller can make a line (or its formatting) of any size.
struct LoggedText {
    std::string_view text;
};

/// Most bytes one LoggedText takes in a line, escapes included: a whole path fits.
inline constexpr std::size_t kMaxLoggedText = 4096;

/// Strings are logged as LoggedText; every other argument as it is.
template <typename T>
decltype(auto) loggable(T&& value) {
    using Plain = std::decay_t<T>;
    if constexpr (std::is_array_v<std::remove_reference_t<T>> &&
                  std::is_convertible_v<Plain, const char*>) {
        return LoggedText{std::string_view(value)};
    } else if constexpr (std::is_pointer_v<Plain> && std::is_convertible_v<Plain, const char*>) {
        return LoggedText{value != nullptr ? std::string_view(value) : std::string_view()};
    } else if constexpr (std::is_convertible_v<const Plain&, std::string_view>) {
        return LoggedText{std::string_view(value)};
    } else {
        return std::forward<T>(value);
    }
}
}  // namespace detail

/// Logs through Logger::GetInstancePtr(); whatever logging throws is reported on stderr and
/// dropped.
template <typename... Args>
void guardedLog(spdlog::level::level_enum level, const char* module, const char* function,
                uint64_t line, const char* fmt, Args&&... args) noexcept {
    try {
        detail::sharedLogger()->log(level, module, function, line, fmt,
                                    detail::loggable(std::forward<Args>(args))...);
    } catch (const spdlog::spdlog_ex& error) {
        detail::reportSpdlogFailure(module, function, line, error);
    } catch (const std::exception& error) {
        detail::reportStdFailure(module, function, line, error);
    } catch (...) {
        detail::reportUnknownFailure();
    }
}

}  // namespace corvid::logging

template <>
struct fmt::formatter<corvid::logging::detail::LoggedText> {
    constexpr auto parse(format_parse_context& context) { return context.begin(); }

    template <typename FormatContext>
    auto format(const corvid::logging::detail::LoggedText& logged, FormatContext& context) const {
        static constexpr char kHex[] = "0123456789abcdef";
        auto out = context.out();
        std::size_t written = 0;
        std::size_t used = 0;
        for (; used < logged.text.size(); ++used) {
            const char c = logged.text[used];
            const auto byte = static_cast<unsigned char>(c);
            char escaped[4] = {c};
            std::size_t width = 1;
            if (byte < 0x20 || byte == 0x7f) {
                const char named = c == '\n' ? 'n' : c == '\r' ? 'r' : c == '\t' ? 't' : '\0';
                escaped[0] = '\\';
                escaped[1] = named != '\0' ? named : 'x';
                escaped[2] = kHex[byte >> 4];
                escaped[3] = kHex[byte & 0xf];
                width = named != '\0' ? 2 : 4;
            }
            if (written + width > corvid::logging::detail::kMaxLoggedText) {
                break;
            }
            out = std::copy(escaped, escaped + width, out);
            written += width;
        }
        if (used < logged.text.size()) {
            out = fmt::format_to(out, "... [{} bytes left out]", logged.text.size() - used);
        }
        return out;
    }
};

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
