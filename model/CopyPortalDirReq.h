#pragma once
// Arguments of copyPortalDir: a source directory moved into a portal directory.

#include <rttr/type>
#include <string>

namespace corvid::sdp_promote::copyPortalDirReq {

class CopyPortalDirReq {
public:
    CopyPortalDirReq() = default;
    virtual ~CopyPortalDirReq() = default;

    std::string srcDir;     ///< absolute source directory, removed afterwards
    std::string portalDir;  ///< target directory below the portal root

    RTTR_ENABLE()
};

}  // namespace corvid::sdp_promote::copyPortalDirReq
