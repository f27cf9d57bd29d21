#include "SdpPromote/SdpPromoteServiceImpl.h"

#include "SdpPromote/BuildConstants.h"

namespace corvid {

SdpPromoteServiceImpl::SdpPromoteServiceImpl()
    : copyFilter_{".jpg", ".jpeg", ".png",  ".gif",   ".bmp", ".webp", ".svg",
                  ".ttf", ".otf",  ".woff", ".woff2", ".css", ".json"} {}

const char* SdpPromoteServiceImpl::getServiceName() {
    return "SdpPromoteService";
}

std::shared_ptr<apache::thrift::TProcessor> SdpPromoteServiceImpl::getProcessor() {
    return std::make_shared<rpc::thrift::SdpPromoteServiceProcessor>(
        std::make_shared<SdpPromoteServiceImpl>());
}

bool SdpPromoteServiceImpl::IsRpcStatusNormal() {
    return true;
}

void SdpPromoteServiceImpl::getTrayAppPath(std::string& path) {
    path = build::kPortalRoot;
}

}  // namespace corvid
