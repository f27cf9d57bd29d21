// helion-promote: calls the SdpPromoteService of a running helion-host, one subcommand per method.
#include <thrift/TApplicationException.h>
#include <thrift/TOutput.h>
#include <thrift/transport/TTransportException.h>

#include <CLI/CLI.hpp>
#include <boost/filesystem.hpp>
#include <functional>
#include <iostream>

#include "host/endpoint/Endpoint.h"
#include "tools/cli/CommandLine.h"
#include "tools/lib/ClientChecks.h"
#include "tools/lib/FileIo.h"
#include "tools/lib/OpenSslKeys.h"
#include "tools/lib/RequestJson.h"
#include "tools/lib/ResultJson.h"
#include "tools/lib/ServiceConnection.h"

namespace {

using helion::tools::ServiceConnection;
using Service = corvid::rpc::thrift::SdpPromoteServiceClient;

using helion::cli::kExitUsage;
using helion::cli::parseCommandLine;
constexpr int kExitOk = 0;
constexpr int kExitFailed = 1;
constexpr int kExitUnreachable = 3;

struct Outcome {
    std::string json;
    int exitCode;
};

Outcome envelope(const std::string& text) {
    const auto code = helion::tools::envelopeCode(text);
    return {text, code && *code == 0 ? kExitOk : kExitFailed};
}

Outcome boolean(bool value) {
    return {helion::tools::boolJson(value), value ? kExitOk : kExitFailed};
}

Outcome processData(const corvid::rpc::thrift::ProcessData& data) {
    return {helion::tools::processDataJson(data), data.code == 0 ? kExitOk : kExitFailed};
}

/// The host resolves paths in its own working directory; hand it absolute ones.
std::string absolute(const std::string& path) {
    return path.empty() ? path : boost::filesystem::absolute(path).string();
}

int fail(const std::string& message, int code) {
    std::cerr << "helion-promote: error: " << message << std::endl;
    return code;
}

}  // namespace

int main(int argc, char** argv) {
    using namespace helion::tools;
    // Thrift's own diagnostics would add a second, timestamped line to every failure.
    apache::thrift::GlobalOutput.setOutputFunction([](const char*) {});

    CLI::App app{
        "Calls the SdpPromoteService of a running helion-host and prints the result as JSON.\n"
        "Exit status: 0 success, 1 the operation failed, 2 usage error, 3 host unreachable."};
    app.require_subcommand(1);
    app.fallthrough();
    app.set_version_flag("--version", std::string("helion-promote ") + HELION_TOOLS_VERSION);
    std::string connect = "unix:" + helion::host::defaultSocketPath();
    int timeoutSeconds = 120;
    app.add_option("-c,--connect", connect, "The host's endpoint: unix:PATH or tcp:HOST:PORT")
        ->capture_default_str();
    app.add_option("--timeout", timeoutSeconds, "Seconds to wait for the host")
        ->check(CLI::Range(1, 3600))
        ->capture_default_str();
    bool force = false;
    app.add_flag("--force", force,
                 "Send what looks like a slip: a portal directory name that is empty, '.', '/' "
                 "or has a '..' component; package files the client cannot use");

    // Portal directory names the request would carry, and the files the module would read.
    std::vector<std::string> portalNames;
    std::vector<std::pair<std::string, std::string>> inputFiles;

    std::function<Outcome(Service&)> action;

    std::string zip, sig, dir;
    auto* update = app.add_subcommand(
        "update-portal", "Verify a signed package and install it as a portal directory");
    update->add_option("--zip", zip, "The portal package (zip)")->required();
    update->add_option("--sig", sig, "Its detached signature")->required();
    update->add_option("--dir", dir, "Portal directory to replace, below the portal root")
        ->required();
    update->callback([&] {
        portalNames = {dir};
        inputFiles = {{"package", zip}, {"signature", sig}};
        action = [&](Service& service) {
            std::string result;
            service.updatePortal(result, updatePortalParam(absolute(zip), dir, absolute(sig)));
            return envelope(result);
        };
    });

    std::string src, copyDir;
    auto* copy = app.add_subcommand(
        "copy-portal-dir",
        "Move the resource files of SRC into a portal directory, then remove SRC");
    copy->add_option("--src", src, "Source directory")->required();
    copy->add_option("--dir", copyDir, "Portal directory, below the portal root")->required();
    copy->callback([&] {
        portalNames = {copyDir};
        action = [&](Service& service) {
            std::string result;
            service.copyPortalDir(result, copyPortalDirParam(absolute(src), copyDir));
            return envelope(result);
        };
    });

    std::vector<std::string> dirs;
    auto* del = app.add_subcommand("del-portal-dir", "Remove portal directories");
    del->add_option("DIR", dirs, "Portal directories, below the portal root")->required();
    del->callback([&] {
        portalNames = dirs;
        action = [&](Service& service) {
            std::string result;
            service.delPortalDir(result, delPortalDirParam(dirs));
            return envelope(result);
        };
    });

    int64_t pid = 0;
    auto* process = app.add_subcommand("process", "Information on one process");
    process->add_option("PID", pid, "Process id")->required();
    process->callback([&] {
        action = [&](Service& service) {
            corvid::rpc::thrift::ProcessData data;
            service.getProcessData(data, pid);
            return processData(data);
        };
    });

    auto* processes = app.add_subcommand("processes", "Information on all processes");
    processes->callback([&] {
        action = [&](Service& service) {
            corvid::rpc::thrift::ProcessData data;
            service.getAllProcessData(data);
            return processData(data);
        };
    });

    auto* startTool = app.add_subcommand("start-diagnosis-tool",
                                         "End a running diagnosis tool and start it anew");
    startTool->callback(
        [&] { action = [](Service& service) { return boolean(service.StartDiagnosisTool()); }; });

    auto* relaunch = app.add_subcommand("relaunch-tool", "The same, through reLaunchTool");
    relaunch->callback(
        [&] { action = [](Service& service) { return boolean(service.reLaunchTool()); }; });

    auto* ping = app.add_subcommand("ping", "Check that the service answers");
    ping->callback(
        [&] { action = [](Service& service) { return boolean(service.IsRpcStatusNormal()); }; });

    std::string method, param;
    auto* call = app.add_subcommand("call", "Call a portal method with a raw JSON parameter text");
    call->add_option("METHOD", method, "updatePortal, copyPortalDir or delPortalDir")
        ->required()
        ->check(CLI::IsMember({"updatePortal", "copyPortalDir", "delPortalDir"}));
    call->add_option("JSON", param, "The parameter text, sent as it is")->required();
    call->callback([&] {
        action = [&](Service& service) {
            std::string result;
            if (method == "updatePortal") {
                service.updatePortal(result, param);
            } else if (method == "copyPortalDir") {
                service.copyPortalDir(result, param);
            } else {
                service.delPortalDir(result, param);
            }
            return envelope(result);
        };
    });

    if (const auto status = parseCommandLine(app, argc, argv)) {
        return *status;
    }
    if (!force) {
        for (const auto& name : portalNames) {
            if (const std::string slip = portalNameSlip(name); !slip.empty()) {
                return fail("the portal directory '" + name + "' " + slip +
                                "; nothing was sent (pass --force if that is meant)",
                            kExitUsage);
            }
        }
        try {
            for (const auto& [what, path] : inputFiles) {
                checkInputFile(path, what, what == "signature" ? kSignatureBytes : 0);
            }
        } catch (const ToolError& error) {
            return fail(std::string(error.what()) + "; nothing was sent", kExitFailed);
        }
    }

    helion::host::Endpoint endpoint;
    try {
        endpoint = helion::host::parseEndpoint(connect);
    } catch (const std::invalid_argument& error) {
        return fail(error.what(), kExitUsage);
    }

    try {
        ServiceConnection connection(endpoint, timeoutSeconds * 1000);
        const Outcome outcome = action(connection.service());
        std::cout << outcome.json << std::endl;
        return outcome.exitCode;
    } catch (const UnreachableError& error) {
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
