// updatePortal: verify a signed package, then replace a portal directory with its contents.
#include <boost/filesystem.hpp>

#include "SdpPromote/PortalPath.h"
#include "SdpPromote/SdpPromoteErrorCategory.h"
#include "SdpPromote/SdpPromoteServiceImpl.h"
#include "common/Log.h"
#include "http/ResponseStr.h"
#include "io/JsonBinding.h"
#include "model/UpdatePortalReq.h"

namespace corvid {

namespace fs = boost::filesystem;

void SdpPromoteServiceImpl::updatePortal(std::string& _return, const std::string& param) {
    HP_LOG(spdlog::level::info, "{}", "updatePortal start");

    const auto fail = [&_return](SdpPromoteErrc code, uint64_t line) {
        const std::string message = sdpPromoteMessage(code);
        HP_LOG_AT(spdlog::level::warn, "updatePortal", line, "{}{}", message, "");
        _return = responseStr(static_cast<int>(code), message, "");
    };

    std::string root;
    getTrayAppPath(root);
    if (root.empty()) {
        return fail(SdpPromoteErrc::getAppPathError, __LINE__);
    }

    sdp_promote::updatePortalReq::UpdatePortalReq req;
    if (!io::from_json(param, req)) {
        return fail(SdpPromoteErrc::reqJsonError, __LINE__);
    }
    // Paths arrive as UTF-8, which is already this platform's local 8-bit encoding.
    const std::string srcZip = req.srcZip;
    const std::string signFile = req.signFile;
    HP_LOG(spdlog::level::info, "srcZip:{}, signFile:{} after to local8bit", srcZip, signFile);

    const std::string target = joinPortalPath(root, req.portalDir);

    if (!verifySignature(srcZip, signFile)) {
        return fail(SdpPromoteErrc::verifySignatureError, __LINE__);
    }

    boost::system::error_code ec;
    const fs::file_type type = fs::status(target, ec).type();
    if (type != fs::status_error && type != fs::file_not_found) {
        HP_LOG(spdlog::level::info, "path:{} is exists, will remove", target);
        ec.clear();
        fs::remove_all(target, ec);
        // Not reported: creating the directory next decides whether the update can go on.
        if (ec) {
            HP_LOG(spdlog::level::warn, "{}; Reason: {}",
                   sdpPromoteMessage(SdpPromoteErrc::delFileError), ec.message());
        }
    }

    HP_LOG(spdlog::level::info, "create dir:{}", target);
    ec.clear();
    fs::create_directories(target, ec);
    if (ec) {
        // The caller gets the system's own text here, not the category's.
        HP_LOG(spdlog::level::warn, "{}; Reason: {}",
               sdpPromoteMessage(SdpPromoteErrc::createDirError), ec.message());
        _return = responseStr(static_cast<int>(SdpPromoteErrc::createDirError), ec.message(), "");
        return;
    }

    if (!unZipToFile(srcZip, target)) {
        return fail(SdpPromoteErrc::decompressionError, __LINE__);
    }

    HP_LOG(spdlog::level::info, "{}", "updatePortal success");
    _return = responseStr(static_cast<int>(SdpPromoteErrc::successful),
                          sdpPromoteMessage(SdpPromoteErrc::successful), "");
}

}  // namespace corvid
