// getProcessData / getAllProcessData: every failure travels in the reply's code and message.
#include "SdpPromote/SdpProcessService.h"
#include "SdpPromote/SdpPromoteErrorCategory.h"
#include "SdpPromote/SdpPromoteServiceImpl.h"
#include "common/Log.h"

namespace corvid {

namespace {
// The reply's success text differs from the category's "successful" on purpose: callers match it.
constexpr const char* kSuccess = "Success";
}  // namespace

void SdpPromoteServiceImpl::getProcessData(rpc::thrift::ProcessData& _return, int64_t pid) {
    HP_LOG(spdlog::level::debug, "get single process info data rpc start... pid = {}", pid);
    if (pid < 0) {
        const auto code = static_cast<int64_t>(SdpPromoteErrc::invalidPid);
        _return.__set_code(code);
        _return.__set_message(sdpPromoteMessage(SdpPromoteErrc::invalidPid));
        HP_LOG(spdlog::level::err, "get single process info data failed!; Reason: code={}, msg={}",
               _return.code, _return.message);
        return;
    }

    std::error_code ec;
    SdpProcessService service;
    // The record goes into the reply before the error is looked at, failure or not.
    _return.__set_processInfo({service.getProcessInfo(pid, ec)});
    if (ec) {
        _return.__set_code(ec.value());
        _return.__set_message(ec.message());
        HP_LOG(spdlog::level::warn, "get single process info data failed!; Reason: code={}, msg={}",
               _return.code, _return.message);
        return;
    }
    _return.__set_code(0);
    _return.__set_message(kSuccess);
    HP_LOG(spdlog::level::debug, "get single process info data rpc end... pid = {}", pid);
}

void SdpPromoteServiceImpl::getAllProcessData(rpc::thrift::ProcessData& _return) {
    HP_LOG(spdlog::level::info, "{}", "get all process info data rpc start...");
    std::error_code ec;
    SdpProcessService service;
    _return.processInfo = service.getProcessDataList(ec);
    if (ec) {
        _return.__set_code(ec.value());
        _return.__set_message(ec.message());
        HP_LOG(spdlog::level::warn, "get all process info data failed!; Reason: code={}, msg={}",
               _return.code, _return.message);
    } else {
        _return.__set_code(0);
        _return.__set_message(kSuccess);
    }
    HP_LOG(spdlog::level::info, "{}", "get all process info data rpc end...");
}

}  // namespace corvid
