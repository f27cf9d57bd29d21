// The methods that change no portal: process queries, the diagnosis tool and the liveness probe.
#include <cstdint>
#include <memory>

#include "tools/promote/Request.h"

namespace helion::promote {

namespace {

void addProcess(CLI::App& app, Request& request) {
    auto pid = std::make_shared<std::int64_t>(0);
    auto* process = app.add_subcommand("process", "Information on one process");
    process->add_option("PID", *pid, "Process id")->required();
    process->callback([pid, &request] {
        request.call = [pid](Service& service) {
            corvid::rpc::thrift::ProcessData data;
            service.getProcessData(data, *pid);
            return processData(data);
        };
    });
}

/// A method without parameters whose answer is a yes or no.
void addYesNo(CLI::App& app, Request& request, const std::string& name,
              const std::string& description, bool (Service::*method)()) {
    app.add_subcommand(name, description)->callback([method, &request] {
        request.call = [method](Service& service) { return boolean((service.*method)()); };
    });
}

}  // namespace

void addQueryCommands(CLI::App& app, Request& request) {
    addProcess(app, request);
    app.add_subcommand("processes", "Information on all processes")->callback([&request] {
        request.call = [](Service& service) {
            corvid::rpc::thrift::ProcessData data;
            service.getAllProcessData(data);
            return processData(data);
        };
    });
    addYesNo(app, request, "start-diagnosis-tool", "End a running diagnosis tool and start it anew",
             &Service::StartDiagnosisTool);
    addYesNo(app, request, "relaunch-tool", "The same, through reLaunchTool",
             &Service::reLaunchTool);
    addYesNo(app, request, "ping", "Check that the service answers", &Service::IsRpcStatusNormal);
}

}  // namespace helion::promote
