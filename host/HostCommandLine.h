#pragma once
// helion-host's command line: the options it declares and the host options they make.

#include <CLI/CLI.hpp>
#include <cstddef>
#include <string>
#include <vector>

#include "host/Host.h"
#include "host/Logging.h"

namespace helion::host {

/// The command line as given, before it is checked against the system.
struct CommandLine {
    std::string modulePath;
    std::string listen;
    std::size_t workers = 8;
    std::string http;
    std::vector<std::string> events;
    std::string socketGroup;
    int requestTimeout = 30;
    int stopTimeout = 10;
    LoggingOptions logging;
};

/// Declares every option of the program on app, parsed into line.
void declareOptions(CLI::App& app, CommandLine& line);

/// The host's options from a parsed command line. Throws std::invalid_argument for a usage error
/// (an unknown group, a malformed endpoint or event).
HostOptions hostOptions(const CommandLine& line);

}  // namespace helion::host
