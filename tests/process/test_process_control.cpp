// Ending and launching the diagnosis tool with real processes, as init of a private PID namespace
// (see this folder's CMakeLists): `ps` sees only what the test started, nothing outside is hit.
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <boost/algorithm/string/replace.hpp>
#include <boost/filesystem.hpp>
#include <chrono>
#include <csignal>
#include <fstream>
#include <functional>
#include <iterator>
#include <sstream>
#include <thread>

#include "SdpPromote/ModuleInstance.h"
#include "SdpPromote/SdpPromoteServiceImpl.h"
#include "process/ProcessControl.h"
#include "support/InProcessRpc.h"
#include "support/TestSupport.h"

extern char** environ;

namespace {

namespace fs = boost::filesystem;
using corvid::process::macos::details::startwithHighPermission;
using corvid::process::macos::details::terminateProcessByCmdLine;
using helion::test::readFile;

const std::string kToolPath = HELION_TEST_RESOURCES_DIR "/bin/HelionDiagnosisTool";

// Polls until done() holds; the bound only keeps a broken run from hanging.
bool eventually(const std::function<bool()>& done) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!done()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return true;
}

void writeExecutable(const fs::path& path, const std::string& script) {
    fs::create_directories(path.parent_path());
    std::ofstream(path.string(), std::ios::trunc) << "#!/bin/sh\n" << script;
    chmod(path.c_str(), 0755);
}

class InPidNamespace : public ::testing::Test {
protected:
    void SetUp() override {
        if (std::getenv("HELION_PID_NAMESPACE") == nullptr || getpid() != 1) {
            GTEST_SKIP() << "starts and kills processes: runs only as PID 1 of a private PID "
                            "namespace (ctest entry process.control_in_pid_namespace)";
        }
        // The fake tool records every start, then idles under its own name.
        writeExecutable(kToolPath, "echo $$ >> '" + started_ + "'\nwhile :; do sleep 1; done\n");
        savedCwd_ = fs::current_path();
        savedPath_ = std::getenv("PATH");
    }

    void TearDown() override {
        if (IsSkipped()) {
            return;
        }
        setenv("PATH", savedPath_.c_str(), 1);
        fs::current_path(savedCwd_);
        const auto tools = started();
        owned_.insert(owned_.end(), tools.begin(), tools.end());
        for (pid_t pid : owned_) {
            kill(pid, SIGKILL);
        }
        boost::system::error_code ignored;
        fs::remove(kToolPath, ignored);
        // As init we inherit every orphan; collect what has ended so no zombie piles up.
        while (waitpid(-1, nullptr, WNOHANG) > 0) {
        }
    }

    std::vector<pid_t> started() const {
        std::istringstream in(readFile(started_));
        return {std::istream_iterator<pid_t>(in), std::istream_iterator<pid_t>()};
    }

    /// Starts a program directly, as our own child.
    pid_t spawn(std::string program, std::string arg = "30") {
        char* argv[] = {program.data(), arg.data(), nullptr};
        pid_t pid = 0;
        EXPECT_EQ(posix_spawn(&pid, argv[0], nullptr, nullptr, argv, environ), 0);
        owned_.push_back(pid);
        return pid;
    }

    static bool killedBySigkill(pid_t pid) {
        int status = 0;
        return eventually([&] { return waitpid(pid, &status, WNOHANG) == pid; }) &&
               WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
    }

    static bool running(pid_t pid) {
        std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
        std::string pidField, comm, state;
        stat >> pidField >> comm >> state;
        return stat && state != "Z";
    }

    /// Puts a `ps` that prints the given lines ahead of the real one on PATH.
    void fakePs(const std::string& lines) {
        const std::string file = scratch_.write("ps-lines", lines);
        writeExecutable(scratch_.path() / "fakebin" / "ps", "cat '" + file + "'\n");
        setenv("PATH", ((scratch_.path() / "fakebin").string() + ":" + savedPath_).c_str(), 1);
    }

    helion::test::TempDir scratch_;
    std::string started_ = (scratch_.path() / "started").string();
    std::vector<pid_t> owned_;
    std::string savedPath_;
    fs::path savedCwd_;
    helion::test::LogCapture log_;
};

TEST_F(InPidNamespace, TerminateChoosesOneCandidateFromTheSearchOutput) {
    // In the `ps` lines, $A and $B stand for two sleepers, $SELF for this process (pid 1), $T
    // for the tool's name.
    const struct {
        std::string psLines;
        bool issued, killsA;
        std::string logged;  // a line that must be there; "-" marks one that must not
        std::string name = "HelionDiagnosisTool";
    } cases[] = {
        {"r $A 1 $T\nr $B 1 $T\n", true, true, "ExecuteCmd cmd : kill -9 $A\n"},  // first only
        // A number with trailing text still converts; a word is logged and skipped.
        {"r abc 1 $T\nr $Ax 1 $T\n", true, true, "]: str:abc to int fail"},
        {"r abc 1 $T\n", false, false, "-kill -9"},
        {"r $SELF 0 $T\nr $A 1 $T\n", true, true, "ExecuteCmd cmd : kill -9 $A"},
        // Kept as shipped: the candidate stays on our own pid, and init survives the kill.
        {"r $SELF 0 $T\n", true, false, "kill -9 1"},
        {"r $B 1 its tool\nr $A 1 it's tool\n", true, true,
         "ExecuteCmd cmd : ps -ef | grep 'it'\\''s' | grep -v grep | awk '{print $2}'", "it's"},
        // Cut at 511 characters: the shell refuses the open quote and nothing is killed.
        {"", false, false, "ExecuteCmd cmd : ps -ef | grep '" + std::string(511 - 15, 'n') + "\n",
         std::string(600, 'n')},
    };
    for (auto c : cases) {
        SCOPED_TRACE(c.psLines);
        const pid_t a = spawn("/bin/sleep");
        const pid_t b = spawn("/bin/sleep");
        for (std::string* text : {&c.psLines, &c.logged}) {
            boost::algorithm::replace_all(*text, "$A", std::to_string(a));
            boost::algorithm::replace_all(*text, "$B", std::to_string(b));
            boost::algorithm::replace_all(*text, "$SELF", std::to_string(getpid()));
            boost::algorithm::replace_all(*text, "$T", "HelionDiagnosisTool");
        }
        fakePs(c.psLines);
        log_.clear();
        EXPECT_EQ(terminateProcessByCmdLine(c.name), c.issued);
        EXPECT_TRUE(c.killsA ? killedBySigkill(a) : running(a));
        EXPECT_TRUE(running(b));
        std::string all;
        for (const auto& line : log_.lines()) {
            all += line.text + "\n";
        }
        EXPECT_EQ(all.find(c.logged[0] == '-' ? c.logged.substr(1) : c.logged) == std::string::npos,
                  c.logged[0] == '-')
            << all;
        const auto failures = log_.matching("to int fail");
        EXPECT_EQ(failures.size(), c.psLines.find("abc") != std::string::npos ? 1u : 0u);
        EXPECT_TRUE(failures.empty() || failures[0].level == spdlog::level::err);
        EXPECT_TRUE(log_.contains("[RPC-CALL] terminateProcessByName(" + c.name +
                                  ") finish, ret=" + (c.issued ? "true" : "false")));
    }
}

TEST_F(InPidNamespace, LaunchSplitsProgramAndArgumentsAndResolvesAgainstTheWorkingDirectory) {
    fs::current_path(scratch_.path());
    const std::string cwd = scratch_.path().string();
    const std::string args = (scratch_.path() / "args").string();
    for (const char* probe : {"probe", "sub/probe"}) {
        writeExecutable(scratch_.path() / probe, "echo \"$*\" > '" + args + "'\n");
    }
    const struct {
        const char* path;
        std::string cmd;
        const char* args;  // nullptr: the shell refuses the command
    } cases[] = {
        {"probe", cwd + "/probe &", "\n"},
        {"sub/probe --flag value", cwd + "/sub/probe --flag value &", "--flag value\n"},
        // Without a separator blanks are not split off: they follow the joined directory.
        {"probe plain words", cwd + "/probe plain words &", "plain words\n"},
        {"/no/such(dir", "/no/such(dir &", nullptr},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.path);
        fs::remove(args);
        log_.clear();
        EXPECT_EQ(startwithHighPermission(c.path), c.args != nullptr);
        const auto lines = log_.matching("]: cmd:" + c.cmd);
        ASSERT_EQ(lines.size(), 1u);
        EXPECT_NE(lines[0].text.find("[HelionPromote:startwithHighPermission:"), std::string::npos);
        const auto refused =
            log_.matching(std::string("start process with HighPermission fail,app:") + c.path);
        EXPECT_EQ(refused.size(), c.args == nullptr ? 1u : 0u);
        EXPECT_TRUE(refused.empty() || refused[0].level == spdlog::level::info);
        if (c.args != nullptr) {
            EXPECT_TRUE(eventually([&] { return readFile(args) == c.args; })) << readFile(args);
        }
    }
}

TEST_F(InPidNamespace, ToolMethodsOverRpcKillTheFirstListedInstanceAndLaunch) {
    helion::test::MultiplexingHost host((scratch_.path() / "rpc.sock").string());
    helion::test::FakeRuntimeContext context;
    context.services["RpcServer"] = static_cast<corvid::IRpcServer*>(&host);
    ModuleInstance::shared().moduleWillLoadFinished(&context);
    host.start();
    helion::test::RpcClient client((scratch_.path() / "rpc.sock").string());
    spawn(kToolPath);  // two instances, listed in the order they started
    ASSERT_TRUE(eventually([&] { return started().size() == 1; }));
    spawn(kToolPath);
    ASSERT_TRUE(eventually([&] { return started().size() == 2; }));
    log_.clear();
    EXPECT_TRUE(client.service.reLaunchTool());
    EXPECT_TRUE(killedBySigkill(started()[0]));
    ASSERT_TRUE(eventually([&] { return started().size() == 3; }));
    EXPECT_TRUE(running(started()[1]));
    EXPECT_TRUE(running(started()[2]));
    // The relaunch announces itself, then goes through the whole start.
    const auto calls = log_.matching(" start...");
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_NE(calls[0].text.find("[HelionPromote:reLaunchTool:"), std::string::npos);
    EXPECT_NE(calls[0].text.find("]: [RPC-CALL] reLaunchTool start..."), std::string::npos);
    EXPECT_NE(calls[1].text.find("]: [RPC-CALL] StartDiagnosisTool start..."), std::string::npos);
    EXPECT_TRUE(log_.contains("]: [RPC-CALL] open diagnosis tool return true"));
    EXPECT_TRUE(client.service.StartDiagnosisTool());
}

}  // namespace
