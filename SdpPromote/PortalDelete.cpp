// delPortalDir: best-effort removal of portal directories below the portal root.
#include <boost/filesystem.hpp>

#include "SdpPromote/PortalPath.h"
#include "SdpPromote/SdpPromoteErrorCategory.h"
#include "SdpPromote/SdpPromoteServiceImpl.h"
#include "common/Log.h"
#include "http/ResponseStr.h"
#include "io/JsonBinding.h"
#include "model/DelPortalDirReq.h"

namespace corvid {

namespace fs = boost::filesystem;

void SdpPromoteServiceImpl::delPortalDir(std::string& _return, const std::string& param) {
    HP_LOG(spdlog::level::info, "{}", "delPortalDir start");

    const auto fail = [&_return](SdpPromoteErrc code, uint64_t line) {
        const std::string message = sdpPromoteMessage(code);
        HP_LOG_AT(spdlog::level::warn, "delPortalDir", line, "{}{}", message, "");
        _return = responseStr(static_cast<int>(code), message, "");
    };

    std::string root;
    getTrayAppPath(root);
    if (root.empty()) {
        return fail(SdpPromoteErrc::getAppPathError, __LINE__);
    }

    sdp_promote::delPortalDirReq::DelPortalDirReq req;
    if (!io::from_json(param, req)) {
        return fail(SdpPromoteErrc::reqJsonError, __LINE__);
    }

    for (const auto& dir : req.portalDirs) {
        const std::string path = joinPortalPath(root, dir);
        // Throwing form: a status that cannot be read is not the same as absence.
        const fs::file_type type = fs::status(path).type();
        if (type == fs::status_error || type == fs::file_not_found) {
            continue;
        }
        boost::system::error_code ec;
        fs::remove_all(path, ec);
        if (ec) {
            HP_LOG(spdlog::level::warn, "{}; Reason: {}",
                   sdpPromoteMessage(SdpPromoteErrc::delFileError), ec.message());
        }
    }

    HP_LOG(spdlog::level::info, "{}", "delPortalDir success");
    _return = responseStr(static_cast<int>(SdpPromoteErrc::successful),
                          sdpPromoteMessage(SdpPromoteErrc::successful), "");
}

}  // namespace corvid
