// copyPortalDir: move the static resource files of an unpacked portal below the portal root.
#include <boost/filesystem.hpp>
#include <cctype>

#include "SdpPromote/PortalOperation.h"
#include "SdpPromote/PortalPath.h"
#include "common/Log.h"
#include "http/ResponseStr.h"
#include "model/CopyPortalDirReq.h"

namespace corvid {

namespace fs = boost::filesystem;

void SdpPromoteServiceImpl::copyPortalDir(std::string& _return, const std::string& param) {
    HP_LOG(spdlog::level::info, "{}", "copyPortalDir start");

    std::string root;
    sdp_promote::copyPortalDirReq::CopyPortalDirReq req;
    if (!openPortalRequest("copyPortalDir", _return, param, root, req)) {
        return;
    }
    // UTF-8 is already this platform's local 8-bit encoding: nothing to convert.

    const std::string target = joinPortalPath(root, req.portalDir);

    boost::system::error_code ec;
    if (portal::isMissing(fs::status(req.srcDir, ec).type())) {
        HP_LOG(spdlog::level::warn, "srcDir:{} is not exists{}", req.srcDir, "");
        _return = responseStr(static_cast<int>(SdpPromoteErrc::sourceFileNotExist),
                              sdpPromoteMessage(SdpPromoteErrc::sourceFileNotExist), "");
        return;
    }

    ec.clear();
    fs::create_directories(target, ec);
    if (ec) {
        // The caller gets the system's own text here, not the category's.
        return portal::answerCreateDirFailure(_return, "copyPortalDir", __LINE__, ec);
    }

    // Errors thrown while walking the source reach the RPC layer unchanged.
    copyPortalFileRecursion(req.srcDir, target);

    ec.clear();
    fs::remove_all(req.srcDir, ec);
    if (ec) {
        // A source left behind does not undo the copy.
        portal::logFailure("copyPortalDir", __LINE__, SdpPromoteErrc::delFileError, ec);
    }

    HP_LOG(spdlog::level::info, "{}", "copyPortalDir success");
    portal::answerSuccess(_return);
}

void SdpPromoteServiceImpl::copyPortalFileRecursion(const std::string& src,
                                                    const std::string& dst) {
    boost::system::error_code ec;
    if (portal::isMissing(fs::status(dst, ec).type())) {
        HP_LOG(spdlog::level::info, "path:{} is not exists, will create", dst);
        fs::create_directories(dst);
    }

    for (fs::directory_iterator entry(src), end; entry != end; ++entry) {
        const std::string name = entry->path().filename().string();
        const std::string entryTarget = joinPortalPath(dst, name);
        ec.clear();
        // Every subdirectory is entered, so one without matching files still appears, empty.
        if (fs::is_directory(fs::status(entry->path(), ec))) {
            copyPortalFileRecursion(entry->path().string(), entryTarget);
            continue;
        }
        if (!stringInList(name, copyFilter_)) {
            continue;
        }
        ec.clear();
        fs::copy_file(entry->path(), entryTarget, fs::copy_options::overwrite_existing, ec);
        if (ec) {
            portal::logFailure("copyPortalFileRecursion", __LINE__, SdpPromoteErrc::copyFileError,
                               ec);
        }
    }
}

bool SdpPromoteServiceImpl::stringInList(const std::string& s,
                                         const std::vector<std::string>& list) {
    std::string lower = s;
    for (char& c : lower) {
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    // A substring test, not an ending test: "a.css.map" matches ".css".
    for (const auto& item : list) {
        if (item.empty()) {
            return true;
        }
        if (item.size() <= lower.size() && lower.find(item) != std::string::npos) {
            return true;
        }
    }
    return false;
}

}  // namespace corvid
