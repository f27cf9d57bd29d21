#pragma once
// The helion-portal subcommands: each registers its options and, once parsed, sets what to run.

#include <CLI/CLI.hpp>
#include <functional>

namespace helion::portal {

inline constexpr int kExitFailed = 1;
/// verify: the files or the key could not be read, so there is no verdict either way.
inline constexpr int kExitCannotCheck = 3;

/// Runs the parsed subcommand and returns the exit status; throws std::exception on failure.
using Command = std::function<int()>;

void addKeygen(CLI::App& app, Command& command);
/// pack, sign, verify and fingerprint.
void addPackageCommands(CLI::App& app, Command& command);

}  // namespace helion::portal
