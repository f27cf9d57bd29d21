#pragma once
// What every command-line program here does with its arguments: --help and --version answer and
// leave with 0, and a usage error, an unknown subcommand named, leaves with the usage status.

#include <CLI/CLI.hpp>
#include <optional>

namespace helion::cli {

/// Exit status of a usage error, the same in every program.
inline constexpr int kExitUsage = 2;

/// Parses argv into app; returns the status to exit with, or nullopt to go on.
inline std::optional<int> parseCommandLine(CLI::App& app, int argc, char** argv) {
    try {
        app.parse(argc, argv);
        return std::nullopt;
    } catch (const CLI::Success& success) {
        return app.exit(success);
    } catch (const CLI::ParseError& error) {
        // Left unparsed by a program that wants a subcommand, a plain word is a mistyped one.
        const auto left = app.remaining();
        if (app.get_require_subcommand_min() > 0 && app.get_subcommands().empty() &&
            !left.empty() && !left.front().empty() && left.front()[0] != '-') {
            app.exit(CLI::ParseError("unknown subcommand '" + left.front() + "'",
                                     CLI::ExitCodes::ExtrasError));
        } else {
            app.exit(error);
        }
        return kExitUsage;
    }
}

}  // namespace helion::cli
