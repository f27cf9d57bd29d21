// The diagnosis tool operations: end a running instance, start a fresh one in the background.
#include "SdpPromote/BuildConstants.h"
#include "SdpPromote/SdpPromoteServiceImpl.h"
#include "common/Log.h"
#include "process/ProcessControl.h"

namespace corvid {
namespace {
constexpr const char* kDiagnosisToolName = "HelionDiagnosisTool";
}

bool SdpPromoteServiceImpl::StartDiagnosisTool() {
    HP_LOG(spdlog::level::info, "[RPC-CALL] {}", "StartDiagnosisTool start...");
    // Whether an old instance was found does not matter: the launch alone decides.
    process::macos::details::terminateProcessByCmdLine(kDiagnosisToolName);
    if (process::macos::details::startwithHighPermission(build::kDiagnosisTool)) {
        HP_LOG(spdlog::level::info, "[RPC-CALL] {}", "open diagnosis tool return true");
        return true;
    }
    HP_LOG(spdlog::level::err, "[RPC-CALL] {}; Reason: startwithHighPermission({}) return failed",
           "open diagnosis tool return false", build::kDiagnosisTool);
    return false;
}

bool SdpPromoteServiceImpl::reLaunchTool() {
    HP_LOG(spdlog::level::info, "[RPC-CALL] {}", "reLaunchTool start...");
    return StartDiagnosisTool();
}

}  // namespace corvid
