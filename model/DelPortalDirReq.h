#pragma once
// Arguments of delPortalDir: portal directories to remove, in order.

#include <rttr/type>
#include <string>
#include <vector>

namespace corvid::sdp_promote::delPortalDirReq {

class DelPortalDirReq {
public:
    DelPortalDirReq() = default;
    virtual ~DelPortalDirReq() = default;

    std::vector<std::string> portalDirs;  ///< directories below the portal root

    RTTR_ENABLE()
};

}  // namespace corvid::sdp_promote::delPortalDirReq
