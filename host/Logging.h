#pragma once
// Sets up the shared Logger the host and its modules write through.

#include <spdlog/common.h>

#include <cstddef>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace helion::host {

struct LoggingOptions {
    spdlog::level::level_enum level = spdlog::level::info;
    /// Also write to this file, rotated by size, when set. Files are created 0600.
    std::string file;
    std::size_t fileMaxBytes = 10 * 1024 * 1024;
    /// Rotated files kept beside the current one.
    std::size_t fileCount = 3;
};

/// The level names the host's options accept, most verbose first, each with its level.
const std::vector<std::pair<std::string, spdlog::level::level_enum>>& levelNames();

/// Installs a console (stderr) logger, plus the rotating file when asked, into the shared Logger.
/// Throws spdlog::spdlog_ex when the file cannot be opened.
void initLogging(const LoggingOptions& options);

/// Closes the log file and opens it again under its name, so that a file moved away by log
/// rotation is let go of. On failure the old file stays in use and the reason is returned.
std::optional<std::string> reopenLogFile();

}  // namespace helion::host
