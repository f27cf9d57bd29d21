// The shell command runner: output collection, exit status rules and their log lines.
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <string>

#include "process/CmdPopen.h"
#include "support/TestSupport.h"

namespace {

using corvid::process::macos::details::cmdPopen;
using helion::test::LogCapture;

TEST(CmdPopen, OutputIsAppendedAndTheStatusJudged) {
    // 3000 characters need several reads of at most 1023; each piece must land after the last.
    std::string longLine(3000, 'a');
    for (int i = 0; i < 3000; ++i) {
        longLine[i] = static_cast<char>('a' + i % 26);
    }
    const struct {
        std::string cmd;
        bool result;
        std::string out;      // appended to "kept"
        std::string failure;  // the error line after "]: ", if any
    } cases[] = {
        {"true", true, "", ""},
        {"awk 'BEGIN { for (i = 0; i < 3000; i++) printf \"%c\", 97 + i % 26; print \"\" }'; "
         "echo short; printf tail",
         true, longLine + "\nshort\ntail", ""},
        // Output read before a failure is still handed back.
        {"echo partial; exit 3", false, "partial\n",
         "pclose(fp) fail, cmd:echo partial; exit 3; Reason: WIFEXITED(768):true,"
         "WEXITSTATUS(768):3"},
        {"kill -9 $$", false, "",
         "pclose(fp) fail, cmd:kill -9 $$; Reason: WIFEXITED(9):false,WEXITSTATUS(9):0"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.cmd);
        LogCapture log;
        std::string out = "kept";
        EXPECT_EQ(cmdPopen(c.cmd, out), c.result);
        EXPECT_EQ(out, "kept" + c.out);
        const auto lines = log.lines();
        ASSERT_EQ(lines.size(), c.failure.empty() ? 1u : 2u);
        EXPECT_EQ(lines[0].level, spdlog::level::debug);
        EXPECT_NE(lines[0].text.find("[HelionPromote:ExecuteCmd:"), std::string::npos);
        EXPECT_NE(lines[0].text.find("]: ExecuteCmd cmd : " + c.cmd), std::string::npos);
        if (!c.failure.empty()) {
            EXPECT_EQ(lines[1].level, spdlog::level::err);
            EXPECT_EQ(lines[1].text.substr(lines[1].text.find("]: ") + 3), c.failure);
        }
    }
}

TEST(CmdPopenDeathTest, HostStatesThatBreakThePipe) {
    // Each breaks process-wide state, so it runs in a forked child reporting by exit code.
    const struct {
        void (*breakIt)();
        const char *cmd, *out, *logged;
        bool result;
    } cases[] = {
        {[] {
             const rlimit none{};
             setrlimit(RLIMIT_NOFILE, &none);
         },
         "echo unseen", "",
         "]: popen(cmd) fail,cmd:echo unseen; Reason: errorno:24,msg:Too many open files", true},
        // Children reaped by the kernel leave pclose nothing to wait for.
        {[] { std::signal(SIGCHLD, SIG_IGN); }, "echo gone", "gone\n",
         "]: pclose(fp) fail, cmd:echo gone，; Reason: pclose exec failed", false},
        // Without standard streams the pipe takes their numbers; the child still writes to it.
        {[] {
             close(STDIN_FILENO);
             close(STDOUT_FILENO);
         },
         "echo seen", "seen\n", "]: ExecuteCmd cmd : echo seen", true},
    };
    for (const auto& c : cases) {
        EXPECT_EXIT(
            {
                LogCapture log;
                c.breakIt();
                std::string out;
                std::_Exit(
                    cmdPopen(c.cmd, out) == c.result && out == c.out && log.contains(c.logged) ? 0
                                                                                               : 1);
            },
            ::testing::ExitedWithCode(0), "")
            << c.cmd;
    }
}

}  // namespace
