#include "process/CmdPopen.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "common/FileDescriptor.h"
#include "common/Log.h"
#include "process/ShellSpawn.h"
#include "process/platform/ClosedOnExecPipe.h"

namespace corvid::process::macos::details {
namespace {

// Every line of the runner is logged under this name, whatever the C++ function is called.
constexpr const char* kLogName = "ExecuteCmd";

// The read end of the child's output pipe, as a stdio stream so that lines come in whole.
struct StreamCloser {
    void operator()(FILE* stream) const noexcept { std::fclose(stream); }
};
using Stream = std::unique_ptr<FILE, StreamCloser>;

// Like popen(cmd, "r"), but the child keeps none of this process's other descriptors.
// Returns 0 or the error number.
int openCommand(const std::string& command, Stream& stream, pid_t& pid) {
    int ends[2];
    if (const int error = openClosedOnExecPipe(ends); error != 0) {
        return error;
    }
    FileDescriptor readEnd(ends[0]);
    FileDescriptor writeEnd(ends[1]);
    // A host without standard streams gets them back from pipe(): a write end of 1 would be
    // left in place for the child and then closed on exec. Above 2 it is always dup2()ed.
    if (writeEnd.get() <= STDERR_FILENO) {
        const int moved = fcntl(writeEnd.get(), F_DUPFD_CLOEXEC, STDERR_FILENO + 1);
        if (moved < 0) {
            return errno;
        }
        writeEnd.reset(moved);
    }
    if (const int error = spawnShell(command, writeEnd.get(), pid); error != 0) {
        return error;
    }
    writeEnd.reset();
    stream.reset(fdopen(readEnd.get(), "r"));
    if (!stream) {
        const int error = errno;
        readEnd.reset();
        waitForChild(pid);
        return error;
    }
    readEnd.release();
    return 0;
}

}  // namespace

bool cmdPopen(const std::string& cmd, std::string& out) {
    HP_LOG_AT(spdlog::level::debug, kLogName, __LINE__, "ExecuteCmd cmd : {}", cmd);

    const std::string command = cmd;
    Stream pipe;
    pid_t child = -1;
    if (const int error = openCommand(command, pipe, child); error != 0) {
        HP_LOG_AT(spdlog::level::err, kLogName, __LINE__,
                  "popen(cmd) fail,cmd:{}; Reason: errorno:{},msg:{}", cmd, error,
                  std::strerror(error));
        // An unstartable command counts as one that printed nothing.
        return true;
    }

    std::array<char, 1024> buffer{};
    while (std::fgets(buffer.data(), static_cast<int>(buffer.size()), pipe.get()) != nullptr) {
        out.append(buffer.data());
        buffer.fill('\0');
    }
    if (std::ferror(pipe.get()) != 0) {
        const int error = errno;
        HP_LOG_AT(spdlog::level::warn, kLogName, __LINE__,
                  "popen(cmd) fail, cmd:{}; Reason: errorno:{},msg:{}", cmd, error,
                  std::strerror(error));
        // A read error alone does not fail the call: the exit status decides.
        std::clearerr(pipe.get());
    }

    pipe.reset();
    const int status = waitForChild(child);
    if (status == -1) {
        HP_LOG_AT(spdlog::level::err, kLogName, __LINE__,
                  "pclose(fp) fail, cmd:{}，; Reason: pclose exec failed", cmd);
        return false;
    }
    if ((status & 0xFF7F) == 0) {
        return true;
    }
    const bool exitedNormally = (status & 0x7F) == 0;
    const int exitCode = (status >> 8) & 0xFF;
    HP_LOG_AT(spdlog::level::err, kLogName, __LINE__,
              "pclose(fp) fail, cmd:{}; Reason: WIFEXITED({}):{},WEXITSTATUS({}):{}", cmd, status,
              exitedNormally, status, exitCode);
    return false;
}

}  // namespace corvid::process::macos::details
