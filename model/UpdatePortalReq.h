#pragma once
// Arguments of updatePortal: a signed zip package and the portal directory it replaces.

#include <rttr/type>
#include <string>

namespace corvid::sdp_promote::updatePortalReq {

class UpdatePortalReq {
public:
    UpdatePortalReq() = default;
    virtual ~UpdatePortalReq() = default;

    std::string srcZip;     ///< absolute path of the zip package
    std::string portalDir;  ///< directory below the portal root
    std::string signFile;   ///< absolute path of the detached signature

    RTTR_ENABLE()
};

}  // namespace corvid::sdp_promote::updatePortalReq
