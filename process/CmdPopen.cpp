#include "process/CmdPopen.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>

#include "common/Log.h"

namespace corvid::process::macos::details {
namespace {

// Every line of the runner is logged under this name, whatever the C++ function is called.
constexpr const char* kLogName = "ExecuteCmd";

// Closes a pipe only on an early exit; the normal path calls pclose itself to read the status.
struct PipeCloser {
    void operator()(FILE* fp) const noexcept { pclose(fp); }
};
using Pipe = std::unique_ptr<FILE, PipeCloser>;

}  // namespace

bool cmdPopen(const std::string& cmd, std::string& out) {
    HP_LOG_AT(spdlog::level::debug, kLogName, __LINE__, "ExecuteCmd cmd : {}", cmd);

    const std::string command = cmd;
    Pipe pipe(popen(command.c_str(), "r"));
    if (!pipe) {
        const int error = errno;
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

    const int status = pclose(pipe.release());
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
