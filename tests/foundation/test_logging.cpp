// The logging facade: level gate, decoration, the info-line cap, context text, the path taken
// before the host sets the logger up, and the call-site guard.
#include <gtest/gtest.h>
#include <spdlog/sinks/base_sink.h>

#include <functional>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>

#include "common/Log.h"
#include "support/TestSupport.h"

namespace {
int formatCalls = 0;
struct Counted {};  // an argument whose formatting is counted
}  // namespace

template <>
struct fmt::formatter<Counted> : fmt::formatter<std::string_view> {
    template <typename Context>
    auto format(const Counted&, Context& ctx) const {
        ++formatCalls;
        return fmt::formatter<std::string_view>::format("counted", ctx);
    }
};

namespace {

using corvid::Logger;
using corvid::logging::guardedLog;
using helion::test::LogCapture;
using spdlog::level::level_enum;

constexpr const char* kTag = "HelionPromote";
constexpr const char* kPrefix = "[HelionPromote:F:1]: ";

// A message that makes a decorated line of exactly length characters.
std::string lineOf(std::size_t length) {
    return std::string(length - std::string(kPrefix).size(), 'x');
}

class Logging : public ::testing::Test {
protected:
    void TearDown() override { Logger::GetInstance().markUninitialised(); }
};

TEST_F(Logging, LevelGateTheInfoCapAndContextText) {
    const auto info = spdlog::level::info;
    const struct {
        level_enum logger, message;
        std::size_t length;
        std::size_t written;  // 0: dropped before formatting
        level_enum out;
    } cases[] = {
        {spdlog::level::err, info, 100, 0, info},
        {spdlog::level::err, spdlog::level::warn, 100, 0, info},
        {spdlog::level::err, spdlog::level::err, 4000, 4000, spdlog::level::err},
        {info, info, 2049, 2048, info},
        {info, info, 2048, 2048, info},
        {info, spdlog::level::warn, 2049, 2049, spdlog::level::warn},
        {spdlog::level::debug, info, 2049, 2049, info},
        {spdlog::level::trace, info, 2049, 2049, info},
        {spdlog::level::err, corvid::kLevelAlways, 3000, 3000, info},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << c.logger << " " << c.message << " " << c.length);
        LogCapture capture(c.logger);
        formatCalls = 0;
        const std::string message = lineOf(c.length).substr(7);
        guardedLog(c.message, kTag, "F", 1, "{}{}", Counted{}, message);
        EXPECT_EQ(formatCalls, c.written == 0 ? 0 : 1);
        const auto lines = capture.lines();
        ASSERT_EQ(lines.size(), c.written == 0 ? 0U : 1U);
        if (c.written == 0) {
            continue;
        }
        const std::string full = kPrefix + std::string("counted") + message;
        EXPECT_EQ(lines[0].text, c.written < c.length ? full.substr(0, 2045) + "..." : full);
        EXPECT_EQ(lines[0].level, c.out);
    }

    // Context text is appended as it is and counts towards the cap.
    LogCapture capture(info);
    const std::string contexts[][3] = {
        {"", "m", "[HelionPromote:F:1]: m"},
        {" ctx", "m 2", "[HelionPromote:F:1]: m 2 ctx"},
        {"!", lineOf(2048), (kPrefix + lineOf(2048)).substr(0, 2045) + "..."}};
    for (const auto& [context, message, line] : contexts) {
        capture.clear();
        Logger::GetInstance().logWithCtx(
            info, kTag, "F", 1, [&text = context] { return text; }, "{}", message);
        EXPECT_EQ(capture.lines().at(0).text, line);
    }

    // Outside text ends after 4096 bytes of output, escapes included, with a count of the rest.
    capture.clear();
    guardedLog(spdlog::level::warn, kTag, "F", 1, "{}",
               std::string(4094, 'x') + "\n" + "0123456789");
    EXPECT_EQ(capture.lines().at(0).text,
              kPrefix + std::string(4094, 'x') + "\\n... [10 bytes left out]");
}

// A sink that throws what it is told to.
struct ThrowingSink : spdlog::sinks::base_sink<std::mutex> {
    std::function<void()> fault;
    void sink_it_(const spdlog::details::log_msg&) override { fault(); }
    void flush_() override {}
};

TEST_F(Logging, FailuresAndTheUninitialisedLoggerGoToStderrOnly) {
    {
        LogCapture capture(spdlog::level::err);
        Logger::GetInstance().markUninitialised();
        testing::internal::CaptureStderr();
        guardedLog(spdlog::level::trace, kTag, "F", 3, "x {} {}", 1, "y");
        EXPECT_EQ(testing::internal::GetCapturedStderr(),
                  "log isn't inited.[HelionPromote:F:3]: x 1 y\n");
        EXPECT_TRUE(capture.lines().empty());
    }
    // A failing sink loses the line, never the caller's flow.
    auto sink = std::make_shared<ThrowingSink>();
    Logger::GetInstance().init(std::make_shared<spdlog::logger>("throwing", sink),
                               spdlog::level::trace);
    const std::function<void()> faults[] = {[] { throw spdlog::spdlog_ex("T"); },
                                            [] { throw std::runtime_error("R"); }, [] { throw 5; }};
    testing::internal::CaptureStderr();
    for (const auto& fault : faults) {
        sink->fault = fault;
        guardedLog(spdlog::level::info, kTag, "F", 139, "plain");
    }
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "sdplog exception[HelionPromote:F:139]: T\n"
              "[HelionPromote:F:139]: R\n"
              "Unknown excepiton When logger\n");
}

}  // namespace
