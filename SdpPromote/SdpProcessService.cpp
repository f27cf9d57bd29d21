#include "SdpPromote/SdpProcessService.h"

#include "SdpPromote/SdpPromoteErrorCategory.h"

namespace corvid {

rpc::thrift::ProcessInfoEx SdpProcessService::getProcessInfo(int64_t, std::error_code& ec) {
    ec = makeSdpPromoteError(SdpPromoteErrc::notSupportImpl);
    return rpc::thrift::ProcessInfoEx();
}

std::vector<rpc::thrift::ProcessInfoEx> SdpProcessService::getProcessDataList(std::error_code& ec) {
    ec = makeSdpPromoteError(SdpPromoteErrc::notSupportImpl);
    return {};
}

}  // namespace corvid
