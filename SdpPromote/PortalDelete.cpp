// delPortalDir: best-effort removal of portal directories below the portal root.
#include <boost/filesystem.hpp>

#include "SdpPromote/PortalOperation.h"
#include "SdpPromote/PortalPath.h"
#include "common/Log.h"
#include "model/DelPortalDirReq.h"

namespace corvid {

namespace fs = boost::filesystem;

void SdpPromoteServiceImpl::delPortalDir(std::string& _return, const std::string& param) {
    HP_LOG(spdlog::level::info, "{}", "delPortalDir start");

    std::string root;
    sdp_promote::delPortalDirReq::DelPortalDirReq req;
    if (!openPortalRequest("delPortalDir", _return, param, root, req)) {
        return;
    }

    for (const auto& dir : req.portalDirs) {
        const std::string path = joinPortalPath(root, dir);
        // Throwing form: a status that cannot be read is not the same as absence.
        const fs::file_type type = fs::status(path).type();
        if (portal::isMissing(type)) {
            continue;
        }
        boost::system::error_code ec;
        fs::remove_all(path, ec);
        if (ec) {
            portal::logFailure("delPortalDir", __LINE__, SdpPromoteErrc::delFileError, ec);
        }
    }

    HP_LOG(spdlog::level::info, "{}", "delPortalDir success");
    portal::answerSuccess(_return);
}

}  // namespace corvid
