// The assertion facility: handler table, default handlers, level names, time and dump layout.
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <ctime>
#include <regex>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "common/SmartAssert.h"

namespace {

using namespace smart_assert;
using HandlerFn = void (*)(const assert_context&);

std::string colour(const char* text, int index) {
    return utl::GetColoredString(text, index);
}

HandlerFn targetOf(const assert_func& handler) {
    const HandlerFn* fn = handler.target<HandlerFn>();
    return fn != nullptr ? *fn : nullptr;
}

// A local wall-clock time plus some microseconds.
std::chrono::system_clock::time_point localTime(int year, int month, int day, int hour, int min,
                                                int sec, long micros) {
    std::tm parts{};
    parts.tm_year = year - 1900;
    parts.tm_mon = month - 1;
    parts.tm_mday = day;
    parts.tm_hour = hour;
    parts.tm_min = min;
    parts.tm_sec = sec;
    parts.tm_isdst = -1;
    return std::chrono::system_clock::from_time_t(std::mktime(&parts)) +
           std::chrono::microseconds(micros);
}

class SmartAssert : public ::testing::Test {
protected:
    void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
    void TearDown() override {
        Assert::set_logger(default_logger);
        Assert::set_log_stream(nullptr);
    }
};

TEST_F(SmartAssert, DefaultHandlersByLevelAndDebugForUnknownLevels) {
    EXPECT_EQ(targetOf(Assert::get_handler(lvl_log)), &default_log_handler);
    EXPECT_EQ(targetOf(Assert::get_handler(lvl_warn)), &default_warn_handler);
    EXPECT_EQ(targetOf(Assert::get_handler(lvl_error)), &default_error_handler);
    EXPECT_EQ(targetOf(Assert::get_handler(lvl_fatal)), &default_fatal_handler);
    for (int level : {200, 150, -1, 999, 1001}) {
        EXPECT_EQ(targetOf(Assert::get_handler(level)), &default_debug_handler) << level;
    }
}

TEST_F(SmartAssert, SetHandlerAddsOrReplacesOneLevel) {
    std::vector<std::string> seen;
    Assert::set_handler(555, [&](const assert_context& ctx) { seen.push_back(ctx.msg); });
    SMART_ASSERT(1 == 2).level(555, "first");
    SMART_ASSERT(1 == 1).level(555, "a holding expression does nothing");
    EXPECT_EQ(seen, std::vector<std::string>{"first"});

    Assert::set_handler(555,
                        [&](const assert_context& ctx) { seen.push_back("again " + ctx.msg); });
    SMART_ASSERT(1 == 2).level(555, "second");
    EXPECT_EQ(seen, (std::vector<std::string>{"first", "again second"}));
    // Other levels keep their handlers; a new Assert does not reinstall the defaults over it.
    EXPECT_EQ(targetOf(Assert::get_handler(lvl_fatal)), &default_fatal_handler);
}

TEST_F(SmartAssert, TheLoggerRunsFirstAndIgnoringSkipsOnlyTheHandler) {
    std::vector<std::string> order;
    Assert::set_logger([&](const assert_context&) { order.emplace_back("logger"); });
    Assert::set_handler(557, [&](const assert_context&) { order.emplace_back("handler"); });

    SMART_ASSERT(false).level(557, "m");
    EXPECT_EQ(order, (std::vector<std::string>{"logger", "handler"}));

    order.clear();
    {
        Assert ignored("x");
        ignored.level(557);
        ignored.ignore();
    }
    EXPECT_EQ(order, std::vector<std::string>{"logger"});

    order.clear();
    {
        Assert shown("x");
        shown.level(557).force_show();
        shown.ignore();
    }
    EXPECT_EQ(order, (std::vector<std::string>{"logger", "handler"}));
}

TEST_F(SmartAssert, TheDefaultLoggerWritesToItsStreamWhenOneIsSet) {
    Assert::set_handler(558, [](const assert_context&) {});
    std::ostringstream stream;
    Assert::set_log_stream(&stream);
    SMART_ASSERT(2 < 1).level(558, "into the stream");
    EXPECT_NE(stream.str().find("'into the stream'"), std::string::npos) << stream.str();
    EXPECT_NE(stream.str().find("'2 < 1' failed"), std::string::npos) << stream.str();
}

TEST_F(SmartAssert, LogAndWarnHandlersDumpToStandardOutput) {
    testing::internal::CaptureStdout();
    SMART_ASSERT(false).log("logged");
    SMART_ASSERT(false).warn("warned");
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_NE(out.find("'logged'"), std::string::npos) << out;
    EXPECT_NE(out.find("'warned'"), std::string::npos) << out;
    EXPECT_NE(out.find(get_typeof_level(lvl_warn)), std::string::npos) << out;
}

TEST_F(SmartAssert, TheErrorHandlerThrowsTheDump) {
    try {
        const int answer = 41;
        SMART_ASSERT(answer == 42).print_current_val(answer, "answer").error("wrong answer");
        FAIL() << "no exception";
    } catch (const std::runtime_error& error) {
        const std::string text = error.what();
        EXPECT_NE(text.find(colour("msg", 3) + ": 'wrong answer'\n"), std::string::npos) << text;
        EXPECT_NE(text.find(colour("Error", 5) + " in "), std::string::npos) << text;
        EXPECT_NE(text.find("'answer == 42' failed\nValues:answer='41'\n"), std::string::npos)
            << text;
    }
}

TEST_F(SmartAssert, TheFatalHandlerDumpsToStderrAndAborts) {
    EXPECT_DEATH(SMART_ASSERT(1 + 1 == 3).print_current_val(nullptr, "p").fatal("the end"),
                 "msg.*: 'the end'(.|\n)*Fatal(.|\n)*Expression.*: '1 \\+ 1 == 3' failed\n"
                 "Values:p='nullptr'\n\n");
}

TEST(SmartAssertText, LevelNamesAreColouredAndOthersNumbered) {
    EXPECT_EQ(get_typeof_level(200), "\033[0;36;59mDebug\033[0;0;0m");
    EXPECT_EQ(get_typeof_level(1000), "\033[0;32;59mFatal\033[0;0;0m");
    EXPECT_EQ(get_typeof_level(42), "(level=42)");
}

TEST(SmartAssertText, TimeHasMillisecondsWithoutLeadingZeros) {
    EXPECT_EQ(format_time(localTime(2021, 3, 4, 5, 6, 7, 5000)), "2021-03-04 05:06:07.5");
    EXPECT_EQ(format_time(localTime(2021, 3, 4, 5, 6, 7, 0)), "2021-03-04 05:06:07.0");
    EXPECT_EQ(format_time(localTime(1999, 12, 31, 23, 59, 59, 999999)), "1999-12-31 23:59:59.999");
    EXPECT_EQ(format_time(localTime(2000, 1, 1, 0, 0, 0, 120000)), "2000-01-01 00:00:00.120");
    EXPECT_EQ(format_time(localTime(2000, 1, 1, 0, 0, 0, 45999)), "2000-01-01 00:00:00.45");
}

TEST(SmartAssertText, AnAssertFillsInTimeAndProcess) {
    Assert::set_handler(559, [](const assert_context&) {});
    Assert assertion("x");
    assertion.level(559);
    const assert_context& ctx = assertion.get_context();
    EXPECT_EQ(ctx.pid, std::to_string(::getpid()));
    EXPECT_TRUE(std::regex_match(ctx.time,
                                 std::regex(R"(\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.(0|[1-9]\d{0,2}))")))
        << ctx.time;
}

TEST(SmartAssertText, TheDetailedDumpLayout) {
    assert_context ctx;
    ctx.file = "f.cpp";
    ctx.function = "void f()";
    ctx.line = 12;
    ctx.expression = "a != b";
    ctx.level = lvl_error;
    ctx.msg = "message";
    ctx.time = "T";
    ctx.pid = "P";
    ctx.tid = "I";
    ctx.stack = "frame";
    ctx.add_val("a", "1");
    ctx.add_val("b", "1");

    std::ostringstream out;
    dump_context_detail(ctx, out);
    EXPECT_EQ(out.str(), "basic information:\ntime:T pid:P tid:I\n" + colour("msg", 3) +
                             ": 'message'\n"
                             "if you want know the detail of assert,please check log\n"
                             "\nstack:\nframe\n" +
                             colour("Error", 5) + " in " + colour("File", 3) + ": f.cpp, " +
                             colour("Line", 3) + ": 12, " + colour("Function", 3) + ": void f()\n" +
                             colour("Expression", 3) + ": 'a != b' failed\nValues:a='1'\nb='1'\n");
}

TEST(SmartAssertText, EmptyPartsAreLeftOut) {
    assert_context ctx;
    ctx.level = 42;
    ctx.expression = kNoExpression;
    std::ostringstream out;
    dump_context_common(ctx, out);
    EXPECT_EQ(out.str(),
              "basic information:\ntime: pid: tid:\n"
              "if you want know the detail of assert,please check log\n"
              "(level=42) in " +
                  colour("File", 3) + ": , " + colour("Line", 3) + ": 0, " + colour("Function", 3) +
                  ": \n");
}

}  // namespace
