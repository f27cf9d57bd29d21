// The shell command runner: output collection, exit status rules and their log lines.
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <csignal>
#include <cstdlib>
#include <string>

#include "process/CmdPopen.h"
#include "support/TestSupport.h"

namespace {

using corvid::process::macos::details::cmdPopen;
using helion::test::LogCapture;

class CmdPopen : public ::testing::Test {
protected:
    std::size_t errorLines() const {
        std::size_t count = 0;
        for (const auto& line : log_.lines()) {
            count += line.level >= spdlog::level::warn ? 1 : 0;
        }
        return count;
    }

    LogCapture log_;
};

TEST_F(CmdPopen, SilentSuccessLeavesOutputAndLogsOnlyTheCommand) {
    std::string out = "kept";
    EXPECT_TRUE(cmdPopen("true", out));
    EXPECT_EQ(out, "kept");
    const auto lines = log_.lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].level, spdlog::level::debug);
    EXPECT_NE(lines[0].text.find("[HelionPromote:ExecuteCmd:"), std::string::npos);
    EXPECT_NE(lines[0].text.find("]: ExecuteCmd cmd : true"), std::string::npos);
}

TEST_F(CmdPopen, LongLinesAndUnterminatedTailArriveWholeAndInOrder) {
    // 3000 characters need three reads of at most 1023; each piece must land after the last.
    std::string expected;
    for (int i = 0; i < 3000; ++i) {
        expected += static_cast<char>('a' + i % 26);
    }
    expected += "\nshort\n1023-boundary";
    const std::string cmd =
        "awk 'BEGIN { s = \"\"; for (i = 0; i < 3000; i++) "
        "s = s sprintf(\"%c\", 97 + i % 26); print s }'; "
        "echo short; printf 1023-boundary";
    std::string out;
    EXPECT_TRUE(cmdPopen(cmd, out));
    EXPECT_EQ(out, expected);
    // A second call appends to what the first left.
    EXPECT_TRUE(cmdPopen("printf two", out));
    EXPECT_EQ(out, expected + "two");
}

TEST_F(CmdPopen, NonZeroExitFailsWithTheExitCodeLogged) {
    std::string out;
    EXPECT_FALSE(cmdPopen("echo partial; exit 3", out));
    // Output read before the failure is still handed back.
    EXPECT_EQ(out, "partial\n");
    const auto lines = log_.matching("pclose(fp) fail");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].level, spdlog::level::err);
    EXPECT_NE(lines[0].text.find("pclose(fp) fail, cmd:echo partial; exit 3; Reason: "
                                 "WIFEXITED(768):true,WEXITSTATUS(768):3"),
              std::string::npos);
}

TEST_F(CmdPopen, DeathBySignalFailsAndIsNotANormalExit) {
    std::string out;
    EXPECT_FALSE(cmdPopen("kill -9 $$", out));
    EXPECT_TRUE(log_.contains("; Reason: WIFEXITED(9):false,WEXITSTATUS(9):0"));
    EXPECT_EQ(errorLines(), 1u);
}

// The failure paths below change process-wide state, so they run in a forked child that
// reports through its exit code.
[[noreturn]] void popenWithoutFileDescriptors() {
    LogCapture log;
    const rlimit none{0, 0};
    setrlimit(RLIMIT_NOFILE, &none);
    std::string out = "kept";
    const bool result = cmdPopen("echo unseen", out);
    const bool logged =
        log.contains("popen(cmd) fail,cmd:echo unseen; Reason: errorno:24,msg:Too many open files");
    std::_Exit(result && out == "kept" && logged ? 0 : 1);
}

[[noreturn]] void pcloseWithoutChildStatus() {
    LogCapture log;
    // Children reaped by the kernel leave pclose nothing to wait for.
    std::signal(SIGCHLD, SIG_IGN);
    std::string out;
    const bool result = cmdPopen("echo gone", out);
    const bool logged =
        log.contains("pclose(fp) fail, cmd:echo gone，; Reason: pclose exec failed");
    std::_Exit(!result && out == "gone\n" && logged ? 0 : 1);
}

TEST(CmdPopenDeathTest, UnopenablePipeCountsAsSuccessAndLeavesOutput) {
    EXPECT_EXIT(popenWithoutFileDescriptors(), ::testing::ExitedWithCode(0), "");
}

TEST(CmdPopenDeathTest, LostChildStatusFailsWithThePcloseText) {
    EXPECT_EXIT(pcloseWithoutChildStatus(), ::testing::ExitedWithCode(0), "");
}

}  // namespace
