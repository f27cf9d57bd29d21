// The assertion facility: handler table, default handlers, level names, time and dump layout.
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <ctime>
#include <sstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "common/SmartAssert.h"

namespace {

using namespace smart_assert;
using HandlerFn = void (*)(const assert_context&);

std::string colour(const char* text, int index) {
    return utl::GetColoredString(text, index);
}

class SmartAssert : public ::testing::Test {
protected:
    void TearDown() override {
        Assert::set_logger(default_logger);
        Assert::set_log_stream(nullptr);
    }
};

TEST_F(SmartAssert, HandlersByLevelLoggerFirstAndIgnoring) {
    const std::pair<int, HandlerFn> defaults[] = {
        {lvl_log, &default_log_handler},     {lvl_warn, &default_warn_handler},
        {lvl_error, &default_error_handler}, {lvl_fatal, &default_fatal_handler},
        {200, &default_debug_handler},       {150, &default_debug_handler},
        {-1, &default_debug_handler},        {1001, &default_debug_handler}};
    for (const auto& [level, handler] : defaults) {
        const auto chosen = Assert::get_handler(level);  // target() points into it
        const HandlerFn* fn = chosen.target<HandlerFn>();
        EXPECT_TRUE(fn != nullptr && *fn == handler) << level;
    }

    std::vector<std::string> seen;
    assert_context last;
    Assert::set_logger([&](const assert_context&) { seen.emplace_back("logger"); });
    Assert::set_handler(555, [&](const assert_context& ctx) { seen.push_back(ctx.msg); });
    SMART_ASSERT(1 == 2).level(555, "first");
    SMART_ASSERT(1 == 1).level(555, "a holding expression does nothing");
    Assert::set_handler(555, [&](const assert_context& ctx) {
        seen.push_back("again " + ctx.msg);
        last = ctx;
    });
    SMART_ASSERT(1 == 2).level(555, "second");
    Assert("x").level(555, "ignored").ignore();
    Assert("x").level(555, "shown").force_show().ignore();
    // New Asserts keep the changed logger and table rather than reinstalling the defaults.
    EXPECT_EQ(seen, (std::vector<std::string>{"logger", "first", "logger", "again second", "logger",
                                              "logger", "again shown"}));
    EXPECT_EQ(last.pid, std::to_string(::getpid()));
    EXPECT_FALSE(last.time.empty());
    // The thread id: a number, another one on another thread.
    const std::string tid = last.tid;
    EXPECT_TRUE(!tid.empty() && tid.find_first_not_of("0123456789") == std::string::npos) << tid;
    std::thread([] { SMART_ASSERT(1 == 2).level(555, "elsewhere"); }).join();
    EXPECT_NE(last.tid, tid);
}

TEST_F(SmartAssert, DefaultHandlersWriteOrThrow) {
    std::ostringstream stream;
    Assert::set_log_stream(&stream);
    testing::internal::CaptureStdout();
    SMART_ASSERT(2 < 1).log("logged");
    Assert::set_log_stream(nullptr);
    SMART_ASSERT(false).log("logged to stdout");
    SMART_ASSERT(false).warn("warned");
    const std::string out = testing::internal::GetCapturedStdout();
    // The default logger and the log handler both wrote to the stream.
    const std::string logged = stream.str();
    EXPECT_NE(logged.find("'2 < 1' failed"), logged.rfind("'2 < 1' failed")) << logged;
    EXPECT_NE(out.find("'logged to stdout'"), std::string::npos) << out;
    EXPECT_NE(out.find(get_typeof_level(lvl_warn) + " in "), std::string::npos) << out;
    EXPECT_EQ(out.find("'logged'"), std::string::npos) << out;

    try {
        const int answer = 41;
        SMART_ASSERT(answer == 42).print_current_val(answer, "answer").error("wrong answer");
        ADD_FAILURE() << "no exception";
    } catch (const std::runtime_error& error) {
        const std::string text = error.what();
        EXPECT_NE(text.find(colour("msg", 3) + ": 'wrong answer'\n"), std::string::npos) << text;
        EXPECT_NE(text.find("'answer == 42' failed\nValues:answer='41'\n"), std::string::npos)
            << text;
    }
}

TEST(SmartAssertText, LevelNamesTimesAndDumps) {
    const std::pair<int, std::string> names[] = {{0, colour("Log", 1)},
                                                 {100, colour("Warning", 5)},
                                                 {200, "\033[0;36;59mDebug\033[0;0;0m"},
                                                 {300, colour("Error", 5)},
                                                 {1000, "\033[0;32;59mFatal\033[0;0;0m"},
                                                 {42, "(level=42)"}};
    for (const auto& [level, name] : names) {
        EXPECT_EQ(get_typeof_level(level), name);
    }
    std::tm parts{};  // 2021-03-04 05:06:00, local time
    parts.tm_year = 121, parts.tm_mon = 2, parts.tm_mday = 4, parts.tm_hour = 5, parts.tm_min = 6;
    parts.tm_isdst = -1;
    const auto minute = std::chrono::system_clock::from_time_t(std::mktime(&parts));
    const std::pair<long, const char*> times[] = {{7005000, "2021-03-04 05:06:07.5"},
                                                  {0, "2021-03-04 05:06:00.0"},
                                                  {59999999, "2021-03-04 05:06:59.999"},
                                                  {120000, "2021-03-04 05:06:00.120"},
                                                  {45999, "2021-03-04 05:06:00.45"}};
    for (const auto& [micros, text] : times) {
        EXPECT_EQ(format_time(minute + std::chrono::microseconds(micros)), text);
    }

    assert_context ctx;
    ctx.file = "f.cpp", ctx.function = "void f()", ctx.line = 12, ctx.expression = "a != b";
    ctx.level = lvl_error, ctx.msg = "message", ctx.time = "T", ctx.pid = "P", ctx.tid = "I";
    ctx.stack = "frame", ctx.values = {{"a", "1"}, {"b", "1"}};
    std::ostringstream out;
    dump_context_detail(ctx, out);
    EXPECT_EQ(out.str(), "basic information:\ntime:T pid:P tid:I\n" + colour("msg", 3) +
                             ": 'message'\n"
                             "if you want know the detail of assert,please check log\n"
                             "\nstack:\nframe\n" +
                             colour("Error", 5) + " in " + colour("File", 3) + ": f.cpp, " +
                             colour("Line", 3) + ": 12, " + colour("Function", 3) + ": void f()\n" +
                             colour("Expression", 3) + ": 'a != b' failed\nValues:a='1'\nb='1'\n");

    assert_context bare;
    bare.level = 42, bare.expression = kNoExpression;
    std::ostringstream common;
    dump_context_common(bare, common);
    EXPECT_EQ(common.str(),
              "basic information:\ntime: pid: tid:\n"
              "if you want know the detail of assert,please check log\n"
              "(level=42) in " +
                  colour("File", 3) + ": , " + colour("Line", 3) + ": 0, " + colour("Function", 3) +
                  ": \n");
}

}  // namespace
