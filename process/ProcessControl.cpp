#include "process/ProcessControl.h"

#include <unistd.h>

#include <array>
#include <boost/algorithm/string/replace.hpp>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <regex>

#include "common/Log.h"
#include "process/CmdPopen.h"
#include "process/ShellSpawn.h"

namespace corvid::process::macos::details {
namespace {

constexpr const char* kSearchTemplate = "ps -ef | grep '%s' | grep -v grep | awk '{print $2}'";
constexpr const char* kKillTemplate = "kill -9 %u";
// Commands are formatted into a fixed buffer; a longer command is cut, never overflowed.
using CommandBuffer = std::array<char, 512>;

}  // namespace

bool terminateProcessByCmdLine(const std::string& name) {
    std::string quoted = name;
    if (quoted.find('\'') != std::string::npos) {
        // The name stands inside single quotes: close, escaped quote, reopen.
        boost::algorithm::replace_all(quoted, "'", "'\\''");
    }
    const pid_t self = getpid();

    CommandBuffer search{};
    std::snprintf(search.data(), search.size(), kSearchTemplate, quoted.c_str());
    std::string output;
    bool killed = false;
    if (cmdPopen(search.data(), output) && !output.empty()) {
        static const std::regex separator("\n+", std::regex::ECMAScript);
        int candidate = 0;
        for (std::sregex_token_iterator token(output.begin(), output.end(), separator, -1), end;
             token != end; ++token) {
            const std::string text = token->str();
            int value = 0;
            try {
                value = std::stoi(text, nullptr, 10);
            } catch (const std::exception&) {
                HP_LOG(spdlog::level::err, "str:{} to int fail{}", text, "");
                continue;
            }
            // Kept as shipped: when only our own pid is listed, the candidate stays on it.
            candidate = value;
            if (value != self) {
                break;
            }
        }
        if (candidate != 0) {
            CommandBuffer kill{};
            std::snprintf(kill.data(), kill.size(), kKillTemplate,
                          static_cast<unsigned>(candidate));
            std::string ignored;
            cmdPopen(kill.data(), ignored);
            killed = true;
        }
    }
    HP_LOG(spdlog::level::info, "[RPC-CALL] terminateProcessByName({}) finish, ret={}", name,
           killed);
    return killed;
}

bool startwithHighPermission(const std::string& path) {
    std::string program = path;
    std::string arguments;
    const auto separator = path.find_last_of("/\\");
    if (separator != std::string::npos) {
        const auto blank = path.find(' ', separator);
        if (blank != std::string::npos) {
            program = path.substr(0, blank);
            arguments = path.substr(blank);
        }
    }
    std::filesystem::path programPath(program);
    if (!programPath.has_root_directory()) {
        std::error_code error;
        const auto cwd = std::filesystem::current_path(error);
        // Without a working directory the program is left as it was given.
        if (!error) {
            programPath = cwd / programPath;
        }
    }
    const std::string cmd = programPath.string() + arguments + " &";
    HP_LOG(spdlog::level::info, "cmd:{}", cmd);

    // The shell's status as system() would give it, without handing the host's descriptors on.
    pid_t shell = -1;
    const int status = spawnShell(cmd, STDOUT_FILENO, shell) == 0 ? waitForChild(shell) : -1;
    // Only the shell's exit code counts; -1 has those bits set and fails.
    if ((status & 0xFF00) == 0) {
        return true;
    }
    HP_LOG(spdlog::level::info, "start process with HighPermission fail,app:{}", path);
    return false;
}

}  // namespace corvid::process::macos::details
