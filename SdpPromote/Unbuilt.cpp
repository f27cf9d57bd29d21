// Operations whose implementation has not landed yet answer plainly that they are not built.
#include "SdpPromote/SdpPromoteServiceImpl.h"

namespace corvid {
namespace {
const char* const kNotBuilt = R"({"code":12,"message":"not built yet","data":""})";
}

void SdpPromoteServiceImpl::updatePortal(std::string& _return, const std::string&) { _return = kNotBuilt; }
void SdpPromoteServiceImpl::copyPortalDir(std::string& _return, const std::string&) { _return = kNotBuilt; }
void SdpPromoteServiceImpl::delPortalDir(std::string& _return, const std::string&) { _return = kNotBuilt; }
void SdpPromoteServiceImpl::getProcessData(rpc::thrift::ProcessData& _return, int64_t) {
    _return.__set_code(12);
    _return.__set_message("not built yet");
}
void SdpPromoteServiceImpl::getAllProcessData(rpc::thrift::ProcessData& _return) {
    _return.__set_code(12);
    _return.__set_message("not built yet");
}
bool SdpPromoteServiceImpl::verifySignature(const std::string&, const std::string&) { return false; }
bool SdpPromoteServiceImpl::unZipToFile(const std::string&, const std::string&) { return false; }
bool SdpPromoteServiceImpl::readFileContent(const std::string&, std::string&, bool) { return false; }
void SdpPromoteServiceImpl::copyPortalFileRecursion(const std::string&, const std::string&) {}
bool SdpPromoteServiceImpl::stringInList(const std::string&, const std::vector<std::string>&) { return false; }

}  // namespace corvid
