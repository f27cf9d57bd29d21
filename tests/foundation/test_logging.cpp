// The logging facade: level gate, decoration, the info-line cap, context text, the path taken
// before the host sets the logger up, and the call-site guard.
#include <gtest/gtest.h>
#include <spdlog/sinks/base_sink.h>

#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>

#include "common/Log.h"
#include "support/TestSupport.h"

namespace {

int formatCalls = 0;

// Arguments whose formatting is counted, or fails.
struct Counted {};
struct ThrowsStd {};
struct ThrowsInt {};

}  // namespace

template <>
struct fmt::formatter<Counted> : fmt::formatter<std::string_view> {
    template <typename Context>
    auto format(const Counted&, Context& ctx) const {
        ++formatCalls;
        return fmt::formatter<std::string_view>::format("counted", ctx);
    }
};

template <>
struct fmt::formatter<ThrowsStd> : fmt::formatter<std::string_view> {
    template <typename Context>
    auto format(const ThrowsStd&, Context& ctx) const -> decltype(ctx.out()) {
        throw std::runtime_error("T");
    }
};

template <>
struct fmt::formatter<ThrowsInt> : fmt::formatter<std::string_view> {
    template <typename Context>
    auto format(const ThrowsInt&, Context& ctx) const -> decltype(ctx.out()) {
        throw 5;
    }
};

namespace {

using corvid::Logger;
using corvid::logging::guardedLog;
using helion::test::LogCapture;
using spdlog::level::level_enum;

constexpr const char* kTag = "HelionPromote";
// "[HelionPromote:F:1]: " is 21 characters.
constexpr std::size_t kDecoration = 21;

std::string lineOf(std::size_t length) {
    return std::string(length - kDecoration, 'x');
}

class Logging : public ::testing::Test {
protected:
    void SetUp() override { formatCalls = 0; }
    void TearDown() override { Logger::GetInstance().markUninitialised(); }

    // The single captured line, or "" when there is not exactly one.
    static std::string only(const LogCapture& capture) {
        const auto lines = capture.lines();
        return lines.size() == 1 ? lines[0].text : std::string();
    }
};

TEST_F(Logging, GetFmtDecoratesAndLeavesPlaceholdersAlone) {
    EXPECT_EQ(Logger::GetInstance().GetFmt("M", "F", 7, "a {} b"), "[M:F:7]: a {} b");
    EXPECT_EQ(Logger::GetInstancePtr(), &Logger::GetInstance());
}

TEST_F(Logging, MessagesBelowTheLevelAreNotEvenFormatted) {
    LogCapture capture(spdlog::level::err);
    guardedLog(spdlog::level::info, kTag, "F", 1, "{}", Counted{});
    guardedLog(spdlog::level::warn, kTag, "F", 1, "{}", Counted{});
    EXPECT_EQ(formatCalls, 0);
    EXPECT_TRUE(capture.lines().empty());

    guardedLog(spdlog::level::err, kTag, "F", 1, "{} {}", Counted{}, 2);
    EXPECT_EQ(formatCalls, 1);
    const auto lines = capture.lines();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].text, "[HelionPromote:F:1]: counted 2");
    EXPECT_EQ(lines[0].level, spdlog::level::err);
}

TEST_F(Logging, LongInfoLinesAreCutOnlyWhileTheLoggerRunsAtInfoOrAbove) {
    const std::string longLine = lineOf(2049);
    {
        LogCapture capture(spdlog::level::info);
        guardedLog(spdlog::level::info, kTag, "F", 1, "{}", longLine);
        const std::string written = only(capture);
        ASSERT_EQ(written.size(), 2048U);
        EXPECT_EQ(written, ("[HelionPromote:F:1]: " + longLine).substr(0, 2045) + "...");

        capture.clear();
        guardedLog(spdlog::level::info, kTag, "F", 1, "{}", lineOf(2048));
        EXPECT_EQ(only(capture), "[HelionPromote:F:1]: " + lineOf(2048));

        capture.clear();
        guardedLog(spdlog::level::err, kTag, "F", 1, "{}", lineOf(5000));
        EXPECT_EQ(only(capture).size(), 5000U);

        capture.clear();
        guardedLog(spdlog::level::warn, kTag, "F", 1, "{}", longLine);
        EXPECT_EQ(only(capture).size(), 2049U);
    }
    for (level_enum level : {spdlog::level::debug, spdlog::level::trace}) {
        LogCapture capture(level);
        guardedLog(spdlog::level::info, kTag, "F", 1, "{}", longLine);
        EXPECT_EQ(only(capture).size(), 2049U) << level;
    }
}

TEST_F(Logging, LevelSevenIsAlwaysWrittenAtInfoAndNeverCut) {
    LogCapture capture(spdlog::level::err);
    guardedLog(corvid::kLevelAlways, kTag, "F", 1, "{}", lineOf(3000));
    const auto lines = capture.lines();
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_EQ(lines[0].level, spdlog::level::info);
    EXPECT_EQ(lines[0].text.size(), 3000U);
}

TEST_F(Logging, ContextTextIsAppendedAsItIs) {
    LogCapture capture(spdlog::level::info);
    Logger& logger = Logger::GetInstance();
    logger.logWithCtx(
        spdlog::level::info, kTag, "F", 1, [] { return std::string(); }, "m {}", 1);
    logger.logWithCtx(
        spdlog::level::info, kTag, "F", 2, [] { return std::string(" ctx"); }, "m {}", 2);
    const auto lines = capture.lines();
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0].text, "[HelionPromote:F:1]: m 1");
    EXPECT_EQ(lines[1].text, "[HelionPromote:F:2]: m 2 ctx");

    // The context counts towards the cap.
    capture.clear();
    logger.logWithCtx(
        spdlog::level::info, kTag, "F", 1, [] { return std::string("!"); }, "{}", lineOf(2048));
    EXPECT_EQ(only(capture).size(), 2048U);
    EXPECT_EQ(only(capture).substr(2045), "...");
}

TEST_F(Logging, BeforeInitialisationEveryLineGoesToStderrOnly) {
    LogCapture capture(spdlog::level::err);
    Logger::GetInstance().markUninitialised();

    testing::internal::CaptureStderr();
    guardedLog(spdlog::level::trace, kTag, "F", 3, "x {} {}", 1, "y");
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "log isn't inited.[HelionPromote:F:3]: x 1 y\n");
    EXPECT_TRUE(capture.lines().empty());
}

// Installs a logger whose one sink throws what it is given.
class ThrowingSink : public spdlog::sinks::base_sink<std::mutex> {
protected:
    void sink_it_(const spdlog::details::log_msg&) override { throw spdlog::spdlog_ex("T"); }
    void flush_() override {}
};

TEST_F(Logging, TheGuardReportsEachKindOfFailureOnStderr) {
    Logger::GetInstance().init(
        std::make_shared<spdlog::logger>("throwing", std::make_shared<ThrowingSink>()),
        spdlog::level::trace);

    testing::internal::CaptureStderr();
    guardedLog(spdlog::level::info, kTag, "F", 139, "plain");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "sdplog exception[HelionPromote:F:139]: T\n");

    testing::internal::CaptureStderr();
    guardedLog(spdlog::level::info, kTag, "F", 139, "{}", ThrowsStd{});
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "[HelionPromote:F:139]: T\n");

    testing::internal::CaptureStderr();
    guardedLog(spdlog::level::info, kTag, "F", 139, "{}", ThrowsInt{});
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Unknown excepiton When logger\n");
}

TEST_F(Logging, AFormatThatDoesNotFitItsArgumentsLosesOnlyTheMessage) {
    LogCapture capture(spdlog::level::trace);
    testing::internal::CaptureStderr();
    guardedLog(spdlog::level::info, kTag, "F", 9, "{} and {}", 1);
    guardedLog(spdlog::level::info, kTag, "F", 10, "{:d}", "text");
    const std::string errors = testing::internal::GetCapturedStderr();
    EXPECT_EQ(errors.rfind("[HelionPromote:F:9]: ", 0), 0U) << errors;
    EXPECT_NE(errors.find("\n[HelionPromote:F:10]: "), std::string::npos) << errors;
    EXPECT_TRUE(capture.lines().empty());
}

TEST_F(Logging, MacrosTagTheModuleAndThePlace) {
    LogCapture capture(spdlog::level::trace);
    const int line = __LINE__ + 1;
    HP_LOG(spdlog::level::debug, "value {}", 5);
    HP_LOG_AT(spdlog::level::warn, "fixedName", 77, "fixed");
    const auto lines = capture.lines();
    ASSERT_EQ(lines.size(), 2U);
    EXPECT_EQ(lines[0].text, "[HelionPromote:TestBody:" + std::to_string(line) + "]: value 5");
    EXPECT_EQ(lines[0].level, spdlog::level::debug);
    EXPECT_EQ(lines[1].text, "[HelionPromote:fixedName:77]: fixed");
    EXPECT_EQ(lines[1].level, spdlog::level::warn);
}

}  // namespace
