// Ending and launching the diagnosis tool, down to real processes. These tests start and kill
// processes, so they only run as init of a private PID namespace (see this folder's
// CMakeLists): there `ps` sees nothing but what the test started, and nothing outside can be hit.
#include <gtest/gtest.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <boost/filesystem.hpp>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

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
using helion::test::LogCapture;
using helion::test::TempDir;

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

void writeExecutable(const std::string& path, const std::string& script) {
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream(path, std::ios::trunc) << script;
    chmod(path.c_str(), 0755);
}

std::vector<pid_t> pidsIn(const std::string& file) {
    std::vector<pid_t> pids;
    std::istringstream in(helion::test::readFile(file));
    for (long pid = 0; in >> pid;) {
        pids.push_back(static_cast<pid_t>(pid));
    }
    return pids;
}

class InPidNamespace : public ::testing::Test {
protected:
    void SetUp() override {
        const char* marker = std::getenv("HELION_PID_NAMESPACE");
        if (marker == nullptr || getpid() != 1) {
            GTEST_SKIP() << "starts and kills processes: runs only as PID 1 of a private PID "
                            "namespace (ctest entry process.control_in_pid_namespace)";
        }
        // The fake tool records every start, then idles under its own name.
        writeExecutable(kToolPath,
                        "#!/bin/sh\necho $$ >> '" + started_ + "'\nwhile :; do sleep 1; done\n");
    }

    void TearDown() override {
        if (IsSkipped()) {
            return;
        }
        if (!savedPath_.empty()) {
            setenv("PATH", savedPath_.c_str(), 1);
        }
        for (pid_t pid : owned_) {
            kill(pid, SIGKILL);
        }
        for (pid_t pid : pidsIn(started_)) {
            kill(pid, SIGKILL);
        }
        boost::system::error_code ignored;
        fs::remove(kToolPath, ignored);
        // As init we inherit every orphan; collect what has ended so no zombie piles up.
        while (waitpid(-1, nullptr, WNOHANG) > 0) {
        }
    }

    /// Starts a program directly, as our own child.
    pid_t spawn(const std::vector<std::string>& argv) {
        std::vector<char*> args;
        for (const auto& arg : argv) {
            args.push_back(const_cast<char*>(arg.c_str()));
        }
        args.push_back(nullptr);
        pid_t pid = 0;
        EXPECT_EQ(posix_spawn(&pid, args[0], nullptr, nullptr, args.data(), environ), 0);
        owned_.push_back(pid);
        return pid;
    }

    /// Starts the fake tool directly and waits until it has recorded itself.
    pid_t spawnTool() {
        const auto before = pidsIn(started_).size();
        const pid_t pid = spawn({kToolPath});
        EXPECT_TRUE(eventually([&] { return pidsIn(started_).size() > before; }));
        return pid;
    }

    static bool killedBySigkill(pid_t pid) {
        int status = 0;
        if (!eventually([&] { return waitpid(pid, &status, WNOHANG) == pid; })) {
            return false;
        }
        return WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
    }

    static bool running(pid_t pid) {
        std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
        std::string pidField, comm, state;
        stat >> pidField >> comm >> state;
        return stat && state != "Z";
    }

    /// Puts a `ps` that prints the given lines ahead of the real one on PATH.
    void fakePs(const std::string& lines) {
        scratch_.write("ps-lines", lines);
        writeExecutable((scratch_.path() / "fakebin" / "ps").string(),
                        "#!/bin/sh\ncat '" + (scratch_.path() / "ps-lines").string() + "'\n");
        savedPath_ = std::getenv("PATH");
        setenv("PATH", ((scratch_.path() / "fakebin").string() + ":" + savedPath_).c_str(), 1);
    }

    TempDir scratch_;
    std::string started_ = (scratch_.path() / "started").string();
    std::vector<pid_t> owned_;
    std::string savedPath_;
    LogCapture log_;
};

TEST_F(InPidNamespace, NothingRunningKillsNothingAndStillLaunches) {
    corvid::SdpPromoteServiceImpl service;
    EXPECT_TRUE(service.StartDiagnosisTool());

    EXPECT_TRUE(log_.contains("[RPC-CALL] StartDiagnosisTool start..."));
    const auto finished = log_.matching("terminateProcessByName(HelionDiagnosisTool) finish");
    ASSERT_EQ(finished.size(), 1u);
    EXPECT_NE(finished[0].text.find("[HelionPromote:terminateProcessByCmdLine:"),
              std::string::npos);
    EXPECT_NE(finished[0].text.find("]: [RPC-CALL] terminateProcessByName(HelionDiagnosisTool) "
                                    "finish, ret=false"),
              std::string::npos);
    EXPECT_FALSE(log_.contains("kill -9"));
    EXPECT_TRUE(log_.contains("]: cmd:" + kToolPath + " &"));
    EXPECT_TRUE(log_.contains("[RPC-CALL] open diagnosis tool return true"));

    ASSERT_TRUE(eventually([&] { return pidsIn(started_).size() == 1; }));
    EXPECT_TRUE(running(pidsIn(started_)[0]));
}

TEST_F(InPidNamespace, OfTwoInstancesOnlyTheFirstListedIsKilled) {
    const pid_t first = spawnTool();
    const pid_t second = spawnTool();
    ASSERT_LT(first, second) << "ps lists by pid";

    EXPECT_TRUE(terminateProcessByCmdLine("HelionDiagnosisTool"));
    EXPECT_TRUE(killedBySigkill(first));
    EXPECT_TRUE(running(second));
    EXPECT_TRUE(log_.contains("ExecuteCmd cmd : kill -9 " + std::to_string(first)));
    EXPECT_TRUE(log_.contains("ret=true"));
}

TEST_F(InPidNamespace, NonNumericSearchLinesAreLoggedAndSkipped) {
    const pid_t sleeper = spawn({"/bin/sleep", "30"});
    fakePs(
        "root  abc  1 0 00:00 ?  00:00:00 HelionDiagnosisTool odd\n"
        "root " +
        std::to_string(sleeper) + "x  1 0 00:00 ?  00:00:00 HelionDiagnosisTool\n");

    EXPECT_TRUE(terminateProcessByCmdLine("HelionDiagnosisTool"));
    const auto failures = log_.matching("to int fail");
    ASSERT_EQ(failures.size(), 1u) << "a number with trailing text still converts";
    EXPECT_EQ(failures[0].level, spdlog::level::err);
    EXPECT_NE(failures[0].text.find("[HelionPromote:terminateProcessByCmdLine:"),
              std::string::npos);
    EXPECT_NE(failures[0].text.find("]: str:abc to int fail"), std::string::npos);
    EXPECT_TRUE(killedBySigkill(sleeper));
}

TEST_F(InPidNamespace, OnlyUnconvertibleLinesKillNothing) {
    fakePs("root  abc  1 0 00:00 ?  00:00:00 HelionDiagnosisTool\n");
    EXPECT_FALSE(terminateProcessByCmdLine("HelionDiagnosisTool"));
    EXPECT_FALSE(log_.contains("kill -9"));
    EXPECT_TRUE(log_.contains("ret=false"));
}

TEST_F(InPidNamespace, OwnPidIsSkippedInFavourOfTheNextOne) {
    const pid_t sleeper = spawn({"/bin/sleep", "30"});
    fakePs("root " + std::to_string(getpid()) + " 0 0 00:00 ? 00:00:00 HelionDiagnosisTool\n" +
           "root " + std::to_string(sleeper) + " 1 0 00:00 ? 00:00:00 HelionDiagnosisTool\n");
    EXPECT_TRUE(terminateProcessByCmdLine("HelionDiagnosisTool"));
    EXPECT_TRUE(killedBySigkill(sleeper));
}

TEST_F(InPidNamespace, OwnPidAloneIsStillKilled) {
    // A kept quirk: the candidate stays on our own pid. As namespace init we survive SIGKILL
    // from inside, which is what makes this observable.
    fakePs("root " + std::to_string(getpid()) + " 0 0 00:00 ? 00:00:00 HelionDiagnosisTool\n");
    EXPECT_TRUE(terminateProcessByCmdLine("HelionDiagnosisTool"));
    EXPECT_TRUE(log_.contains("ExecuteCmd cmd : kill -9 1"));
}

TEST_F(InPidNamespace, QuotesInTheNameAreEscapedForTheShell) {
    const pid_t wanted = spawn({"/bin/sleep", "30"});
    const pid_t other = spawn({"/bin/sleep", "30"});
    fakePs("root " + std::to_string(other) + " 1 0 00:00 ? 00:00:00 its tool\n" + "root " +
           std::to_string(wanted) + " 1 0 00:00 ? 00:00:00 it's tool\n");

    EXPECT_TRUE(terminateProcessByCmdLine("it's"));
    EXPECT_TRUE(log_.contains(
        "ExecuteCmd cmd : ps -ef | grep 'it'\\''s' | grep -v grep | awk '{print $2}'"));
    EXPECT_TRUE(log_.contains("terminateProcessByName(it's) finish, ret=true"));
    EXPECT_TRUE(killedBySigkill(wanted));
    EXPECT_TRUE(running(other));
}

TEST_F(InPidNamespace, OverlongSearchCommandIsCutAt511Characters) {
    const std::string name(600, 'n');
    EXPECT_FALSE(terminateProcessByCmdLine(name));
    const auto commands = log_.matching("ExecuteCmd cmd : ps -ef");
    ASSERT_EQ(commands.size(), 1u);
    const std::string prefix = "ExecuteCmd cmd : ";
    const auto at = commands[0].text.find(prefix);
    const std::string cmd = commands[0].text.substr(at + prefix.size());
    EXPECT_EQ(cmd, "ps -ef | grep '" + std::string(511 - 15, 'n'));
    // The cut command has an open quote: the shell refuses it and nothing is killed.
    EXPECT_TRUE(log_.contains("ret=false"));
}

class Launch : public InPidNamespace {
protected:
    void SetUp() override {
        InPidNamespace::SetUp();
        if (IsSkipped()) {
            return;
        }
        savedCwd_ = fs::current_path();
        fs::current_path(scratch_.path());
        // Records the arguments it was started with.
        const std::string script =
            "#!/bin/sh\necho \"$*\" > '" + (scratch_.path() / "args").string() + "'\n";
        writeExecutable((scratch_.path() / "sub" / "probe").string(), script);
        writeExecutable((scratch_.path() / "probe").string(), script);
    }
    void TearDown() override {
        if (!savedCwd_.empty()) {
            fs::current_path(savedCwd_);
        }
        InPidNamespace::TearDown();
    }

    std::string probeArgs() {
        const std::string file = (scratch_.path() / "args").string();
        eventually([&] { return !helion::test::readFile(file).empty(); });
        return helion::test::readFile(file);
    }

    fs::path savedCwd_;
};

TEST_F(Launch, RelativeProgramIsJoinedToTheWorkingDirectory) {
    const std::string cwd = scratch_.path().string();
    EXPECT_TRUE(startwithHighPermission("probe"));
    const auto lines = log_.matching("]: cmd:");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_NE(lines[0].text.find("[HelionPromote:startwithHighPermission:"), std::string::npos);
    EXPECT_NE(lines[0].text.find("]: cmd:" + cwd + "/probe &"), std::string::npos);
    EXPECT_EQ(probeArgs(), "\n");
}

TEST_F(Launch, ArgumentsStartAtTheFirstBlankAfterTheLastSeparator) {
    const std::string cwd = scratch_.path().string();
    EXPECT_TRUE(startwithHighPermission("sub/probe --flag value"));
    EXPECT_TRUE(log_.contains("]: cmd:" + cwd + "/sub/probe --flag value &"));
    EXPECT_EQ(probeArgs(), "--flag value\n");
}

TEST_F(Launch, WithoutASeparatorTheWholeTextIsTheProgram) {
    // Blanks are not split off here, so they end up after the joined directory as they stand.
    const std::string cwd = scratch_.path().string();
    EXPECT_TRUE(startwithHighPermission("probe plain words"));
    EXPECT_TRUE(log_.contains("]: cmd:" + cwd + "/probe plain words &"));
    EXPECT_EQ(probeArgs(), "plain words\n");
}

TEST_F(Launch, ShellRefusalFailsWithTheAppNamed) {
    EXPECT_FALSE(startwithHighPermission("/no/such(dir"));
    const auto lines = log_.matching("start process with HighPermission fail,app:/no/such(dir");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].level, spdlog::level::info);
}

// The service over real Thrift, the way the host's clients reach it.
class ToolOverRpc : public InPidNamespace {
protected:
    void SetUp() override {
        InPidNamespace::SetUp();
        if (IsSkipped()) {
            return;
        }
        context_.services["RpcServer"] = static_cast<corvid::IRpcServer*>(&host_);
        ModuleInstance::shared().moduleWillLoadFinished(&context_);
        host_.start();
    }
    void TearDown() override {
        host_.stop();
        InPidNamespace::TearDown();
    }

    /// Checks that the running instance was replaced by a fresh one.
    void expectReplaced(pid_t old) {
        EXPECT_TRUE(killedBySigkill(old));
        ASSERT_TRUE(eventually([&] { return pidsIn(started_).size() == 2; }));
        const pid_t fresh = pidsIn(started_)[1];
        EXPECT_NE(fresh, old);
        EXPECT_TRUE(running(fresh));
    }

    std::string socketPath_ = (scratch_.path() / "rpc.sock").string();
    helion::test::MultiplexingHost host_{socketPath_};
    helion::test::FakeRuntimeContext context_;
};

TEST_F(ToolOverRpc, StartDiagnosisToolReplacesARunningInstance) {
    const pid_t old = spawnTool();
    helion::test::RpcClient client(socketPath_);
    EXPECT_TRUE(client.service.StartDiagnosisTool());
    expectReplaced(old);
    EXPECT_TRUE(log_.contains("ret=true"));
}

TEST_F(ToolOverRpc, ReLaunchToolDoesTheSame) {
    const pid_t old = spawnTool();
    helion::test::RpcClient client(socketPath_);
    EXPECT_TRUE(client.service.reLaunchTool());
    expectReplaced(old);
    // The relaunch announces itself, then goes through the whole start.
    std::vector<std::string> calls;
    for (const auto& line : log_.matching(" start...")) {
        calls.push_back(line.text);
    }
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_NE(calls[0].find("[HelionPromote:reLaunchTool:"), std::string::npos);
    EXPECT_NE(calls[0].find("]: [RPC-CALL] reLaunchTool start..."), std::string::npos);
    EXPECT_NE(calls[1].find("]: [RPC-CALL] StartDiagnosisTool start..."), std::string::npos);
}

}  // namespace
