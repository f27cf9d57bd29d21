#pragma once
// What a helion-promote subcommand asks of the host, and how the answer becomes output and status.

#include <CLI/CLI.hpp>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "rpc/SdpPromoteService.h"

namespace helion::promote {

using Service = corvid::rpc::thrift::SdpPromoteServiceClient;

inline constexpr int kExitOk = 0;
inline constexpr int kExitFailed = 1;
inline constexpr int kExitUnreachable = 3;

struct Outcome {
    std::string json;
    int exitCode;
};

/// A response envelope: success only when its code is 0.
Outcome envelope(const std::string& text);
Outcome boolean(bool value);
Outcome processData(const corvid::rpc::thrift::ProcessData& data);

/// Filled in by the subcommand that was parsed.
struct Request {
    /// Portal directory names the request would carry, and the files the module would read,
    /// checked for slips before anything is sent.
    std::vector<std::string> portalNames;
    std::vector<std::pair<std::string, std::string>> inputFiles;
    std::function<Outcome(Service&)> call;
};

/// update-portal, copy-portal-dir and del-portal-dir.
void addPortalCommands(CLI::App& app, Request& request);
/// process, processes, start-diagnosis-tool, relaunch-tool and ping.
void addQueryCommands(CLI::App& app, Request& request);
/// call: a portal method with a raw parameter text.
void addRawCall(CLI::App& app, Request& request);

}  // namespace helion::promote
