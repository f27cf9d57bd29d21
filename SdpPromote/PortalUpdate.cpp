// updatePortal: verify a signed package, then replace a portal directory with its contents.
#include <boost/filesystem.hpp>

#include "SdpPromote/InstalledModes.h"
#include "SdpPromote/PortalOperation.h"
#include "SdpPromote/PortalPath.h"
#include "common/Log.h"
#include "model/UpdatePortalReq.h"

namespace corvid {

namespace fs = boost::filesystem;

void SdpPromoteServiceImpl::updatePortal(std::string& _return, const std::string& param) {
    HP_LOG(spdlog::level::info, "{}", "updatePortal start");

    std::string root;
    sdp_promote::updatePortalReq::UpdatePortalReq req;
    if (!openPortalRequest("updatePortal", _return, param, root, req)) {
        return;
    }
    // Paths arrive as UTF-8, which is already this platform's local 8-bit encoding.
    const std::string srcZip = req.srcZip;
    const std::string signFile = req.signFile;
    HP_LOG(spdlog::level::info, "srcZip:{}, signFile:{} after to local8bit", srcZip, signFile);

    const std::string target = joinPortalPath(root, req.portalDir);

    // Read once: what is extracted below is this buffer, the bytes the signature was checked on,
    // whatever happens to the path meanwhile.
    std::string package;
    if (!verifySignature(srcZip, signFile, package)) {
        return portal::answerFailure(_return, "updatePortal", __LINE__,
                                     SdpPromoteErrc::verifySignatureError);
    }

    boost::system::error_code ec;
    const fs::file_type type = fs::status(target, ec).type();
    if (!portal::isMissing(type)) {
        HP_LOG(spdlog::level::info, "path:{} is exists, will remove", target);
        ec.clear();
        fs::remove_all(target, ec);
        // Not reported: creating the directory next decides whether the update can go on.
        if (ec) {
            portal::logFailure("updatePortal", __LINE__, SdpPromoteErrc::delFileError, ec);
        }
    }

    HP_LOG(spdlog::level::info, "create dir:{}", target);
    portal::createInstalledDirectories(target, ec);
    if (ec) {
        // The caller gets the system's own text here, not the category's.
        return portal::answerCreateDirFailure(_return, "updatePortal", __LINE__, ec);
    }

    if (!unZipToFile(srcZip, package, target)) {
        return portal::answerFailure(_return, "updatePortal", __LINE__,
                                     SdpPromoteErrc::decompressionError);
    }

    HP_LOG(spdlog::level::info, "{}", "updatePortal success");
    portal::answerSuccess(_return);
}

}  // namespace corvid
