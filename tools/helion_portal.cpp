// helion-portal: makes signing keys, packs portal trees and signs and checks packages.
#include <CLI/CLI.hpp>
#include <iostream>

#include "tools/cli/CommandLine.h"
#include "tools/portal/Commands.h"

int main(int argc, char** argv) {
    CLI::App app{
        "Makes portal signing keys, packs portal trees, signs and checks packages.\n"
        "Exit status: 0 success, 1 failure, 2 usage error; verify: see its --help."};
    app.require_subcommand(1);
    app.set_version_flag("--version", std::string("helion-portal ") + HELION_TOOLS_VERSION);
    helion::portal::Command command;
    helion::portal::addKeygen(app, command);
    helion::portal::addPackageCommands(app, command);

    if (const auto status = helion::cli::parseCommandLine(app, argc, argv)) {
        return *status;
    }
    try {
        return command();
    } catch (const std::exception& error) {
        std::cerr << "helion-portal: error: " << error.what() << std::endl;
        return helion::portal::kExitFailed;
    }
}
