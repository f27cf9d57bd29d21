#pragma once
// The host's logging facade. One Logger lives in the host's logging library and is shared by the
// host and every module; modules format and filter on their own side through the templates below.

#include <spdlog/spdlog.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <iostream>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

// Exported even from a module built with hidden visibility.
#define HELION_LOGGER_API __attribute__((visibility("default")))

namespace corvid {

/// Level 7: always written, at info, whatever the logger's level.
inline constexpr auto kLevelAlways = static_cast<spdlog::level::level_enum>(7);

class HELION_LOGGER_API Logger {
public:
    using Level = spdlog::level::level_enum;
    using Context = std::function<std::string()>;

    /// Info lines longer than this are cut while the logger runs at info or above.
    static constexpr std::size_t kMaxInfoLine = 2048;

    /// The process-wide logger.
    static Logger& GetInstance();
    /// The same object as GetInstance(), by pointer.
    static Logger* GetInstancePtr();

    /// Routes lines to sink_logger from now on, dropping those below level. What its sinks throw
    /// is thrown on to whoever called log() or flush() (modules catch it in their logging guard),
    /// so don't hand sink_logger to spdlog's periodic flusher.
    void init(std::shared_ptr<spdlog::logger> sink_logger, Level level);
    /// Marks the logger not initialised: lines go to stderr behind "log isn't inited.".
    void markUninitialised();
    /// Changes the level below which lines are dropped.
    void setLevel(Level level);

    bool isInitialised() const { return initialised_.load(std::memory_order_acquire); }
    Level level() const { return static_cast<Level>(level_.load(std::memory_order_relaxed)); }

    /// "[" module ":" function ":" line "]: " followed by text; "{}" in text is left as it is.
    std::string GetFmt(const char* module, const char* function, uint64_t line,
                       std::string_view text) const;

    /// Formats fmt with args and writes it at level, decorated with module, function and line.
    template <typename... Args>
    void log(Level level, const char* module, const char* function, uint64_t line, const char* fmt,
             Args&&... args) {
        // A dropped line costs the level test alone: no context object, no out-of-line call.
        if (initialised_.load(std::memory_order_acquire) &&
            level_.load(std::memory_order_relaxed) > level) {
            return;
        }
        logWithCtx(level, module, function, line, Context{}, fmt, std::forward<Args>(args)...);
    }

    /// As log(), appending what ctx returns (if anything) to the decorated line.
    template <typename... Args>
    void logWithCtx(Level level, const char* module, const char* function, uint64_t line,
                    const Context& ctx, const char* fmt, Args&&... args);

    Logger(const Logger&) = delete;
    Logger& operator=(const Logger&) = delete;

private:
    Logger() = default;
    ~Logger() = default;

    void write(Level level, std::string_view line);

    std::atomic<bool> initialised_{false};
    std::atomic<int32_t> level_{spdlog::level::info};
    std::atomic<spdlog::logger*> sink_{nullptr};
    // Every logger ever installed stays alive: a line may still be on its way to an old one.
    std::vector<std::shared_ptr<spdlog::logger>> installed_;
};

namespace logging_detail {
using InlineBuffer = fmt::basic_memory_buffer<char, 500>;

template <typename... Args>
void formatInto(InlineBuffer& out, std::string_view fmt, Args&... args) {
    fmt::vformat_to(std::back_inserter(out), fmt::string_view(fmt.data(), fmt.size()),
                    fmt::make_format_args(args...));
}
}  // namespace logging_detail

template <typename... Args>
void Logger::logWithCtx(Level level, const char* module, const char* function, uint64_t line,
                        const Context& ctx, const char* fmt, Args&&... args) {
    if (!initialised_.load(std::memory_order_acquire)) {
        const std::string decorated = GetFmt(module, function, line, fmt);
        logging_detail::InlineBuffer text;
        logging_detail::formatInto(text, decorated, args...);
        std::cerr << "log isn't inited." << std::string_view(text.data(), text.size()) << std::endl;
        return;
    }
    if (level_.load(std::memory_order_relaxed) > level) {
        return;
    }
    logging_detail::InlineBuffer message;
    logging_detail::formatInto(message, fmt, args...);
    std::string decorated =
        GetFmt(module, function, line, std::string_view(message.data(), message.size()));
    if (ctx) {
        decorated += ctx();
    }
    Level out_level = level;
    if (level == kLevelAlways) {
        out_level = spdlog::level::info;
    } else if (level == spdlog::level::info && decorated.size() > kMaxInfoLine &&
               level_.load(std::memory_order_relaxed) > spdlog::level::debug) {
        decorated.resize(kMaxInfoLine - 3);
        decorated += "...";
    }
    write(out_level, decorated);
}

}  // namespace corvid
