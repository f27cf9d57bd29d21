// helion-promote: calls the SdpPromoteService of a running helion-host, one subcommand per method.
#include <thrift/TApplicationException.h>
#include <thrift/TOutput.h>
#include <thrift/transport/TTransportException.h>

#include <CLI/CLI.hpp>
#include <iostream>
#include <optional>

#include "host/endpoint/Endpoint.h"
#include "tools/cli/CommandLine.h"
#include "tools/lib/ClientChecks.h"
#include "tools/lib/FileIo.h"
#include "tools/lib/OpenSslKeys.h"
#include "tools/lib/ServiceConnection.h"
#include "tools/promote/Request.h"

namespace {

using namespace helion::promote;
using helion::cli::kExitUsage;

/// The options before the subcommand: where the host is, and whether slips are sent anyway.
struct Connection {
    std::string connect = "unix:" + helion::host::defaultSocketPath();
    int timeoutSeconds = 120;
    bool force = false;
};

void addConnectionOptions(CLI::App& app, Connection& connection) {
    app.add_option("-c,--connect", connection.connect,
                   "The host's endpoint: unix:PATH or tcp:HOST:PORT")
        ->capture_default_str();
    app.add_option("--timeout", connection.timeoutSeconds, "Seconds to wait for the host")
        ->check(CLI::Range(1, 3600))
        ->capture_default_str();
    app.add_flag("--force", connection.force,
                 "Send what looks like a slip: a portal directory name that is empty, '.', '/' "
                 "or has a '..' component; package files the client cannot use");
}

int fail(const std::string& message, int code) {
    std::cerr << "helion-promote: error: " << message << std::endl;
    return code;
}

/// The status to leave with when the request looks like a slip; nullopt when it may be sent.
std::optional<int> refuseSlips(const Request& request) {
    for (const auto& name : request.portalNames) {
        if (const std::string slip = helion::tools::portalNameSlip(name); !slip.empty()) {
            return fail("the portal directory '" + name + "' " + slip +
                            "; nothing was sent (pass --force if that is meant)",
                        kExitUsage);
        }
    }
    try {
        for (const auto& [what, path] : request.inputFiles) {
            helion::tools::checkInputFile(path, what,
                                          what == "signature" ? helion::tools::kSignatureBytes : 0);
        }
    } catch (const helion::tools::ToolError& error) {
        return fail(std::string(error.what()) + "; nothing was sent", kExitFailed);
    }
    return std::nullopt;
}

/// Sends the request and prints the answer; the status tells how it went.
int send(const Request& request, const Connection& options) {
    helion::host::Endpoint endpoint;
    try {
        endpoint = helion::host::parseEndpoint(options.connect);
    } catch (const std::invalid_argument& error) {
        return fail(error.what(), kExitUsage);
    }
    try {
        helion::tools::ServiceConnection connection(endpoint, options.timeoutSeconds * 1000);
        const Outcome outcome = request.call(connection.service());
        std::cout << outcome.json << std::endl;
        return outcome.exitCode;
    } catch (const helion::tools::UnreachableError& error) {
        return fail(error.what(), kExitUnreachable);
    } catch (const apache::thrift::transport::TTransportException& error) {
        return fail("lost the connection to the host at " + endpoint.str() + ": " + error.what(),
                    kExitUnreachable);
    } catch (const apache::thrift::TApplicationException& error) {
        return fail(std::string("the host answered with an error: ") + error.what(), kExitFailed);
    } catch (const std::exception& error) {
        return fail(error.what(), kExitFailed);
    }
}

}  // namespace

int main(int argc, char** argv) {
    // Thrift's own diagnostics would add a second, timestamped line to every failure.
    apache::thrift::GlobalOutput.setOutputFunction([](const char*) {});

    CLI::App app{
        "Calls the SdpPromoteService of a running helion-host and prints the result as JSON.\n"
        "Exit status: 0 success, 1 the operation failed, 2 usage error, 3 host unreachable."};
    app.require_subcommand(1);
    app.fallthrough();
    app.set_version_flag("--version", std::string("helion-promote ") + HELION_TOOLS_VERSION);
    Connection connection;
    addConnectionOptions(app, connection);
    Request request;
    addPortalCommands(app, request);
    addQueryCommands(app, request);
    addRawCall(app, request);

    if (const auto status = helion::cli::parseCommandLine(app, argc, argv)) {
        return *status;
    }
    if (!connection.force) {
        if (const auto status = refuseSlips(request)) {
            return *status;
        }
    }
    return send(request, connection);
}
