// copyPortalDir: move the static resource files of an unpacked portal below the portal root.
#include <boost/filesystem.hpp>
#include <cctype>

#include "SdpPromote/PortalPath.h"
#include "SdpPromote/SdpPromoteErrorCategory.h"
#include "SdpPromote/SdpPromoteServiceImpl.h"
#include "common/Log.h"
#include "http/ResponseStr.h"
#include "io/JsonBinding.h"
#include "model/CopyPortalDirReq.h"

namespace corvid {

namespace fs = boost::filesystem;

namespace {
bool missing(fs::file_type type) {
    return type == fs::status_error || type == fs::file_not_found;
}
}  // namespace

void SdpPromoteServiceImpl::copyPortalDir(std::string& _return, const std::string& param) {
    HP_LOG(spdlog::level::info, "{}", "copyPortalDir start");

    const auto fail = [&_return](SdpPromoteErrc code, uint64_t line) {
        const std::string message = sdpPromoteMessage(code);
        HP_LOG_AT(spdlog::level::warn, "copyPortalDir", line, "{}{}", message, "");
        _return = responseStr(static_cast<int>(code), message, "");
    };

    std::string root;
    getTrayAppPath(root);
    if (root.empty()) {
        return fail(SdpPromoteErrc::getAppPathError, __LINE__);
    }

    sdp_promote::copyPortalDirReq::CopyPortalDirReq req;
    if (!io::from_json(param, req)) {
        return fail(SdpPromoteErrc::reqJsonError, __LINE__);
    }
    // UTF-8 is already this platform's local 8-bit encoding: nothing to convert.

    const std::string target = joinPortalPath(root, req.portalDir);

    boost::system::error_code ec;
    if (missing(fs::status(req.srcDir, ec).type())) {
        HP_LOG(spdlog::level::warn, "srcDir:{} is not exists{}", req.srcDir, "");
        _return = responseStr(static_cast<int>(SdpPromoteErrc::sourceFileNotExist),
                              sdpPromoteMessage(SdpPromoteErrc::sourceFileNotExist), "");
        return;
    }

    ec.clear();
    fs::create_directories(target, ec);
    if (ec) {
        // The caller gets the system's own text here, not the category's.
        HP_LOG(spdlog::level::warn, "{}; Reason: {}",
               sdpPromoteMessage(SdpPromoteErrc::createDirError), ec.message());
        _return = responseStr(static_cast<int>(SdpPromoteErrc::createDirError), ec.message(), "");
        return;
    }

    // Errors thrown while walking the source reach the RPC layer unchanged.
    copyPortalFileRecursion(req.srcDir, target);

    ec.clear();
    fs::remove_all(req.srcDir, ec);
    if (ec) {
        // A source left behind does not undo the copy.
        HP_LOG(spdlog::level::warn, "{}; Reason: {}",
               sdpPromoteMessage(SdpPromoteErrc::delFileError), ec.message());
    }

    HP_LOG(spdlog::level::info, "{}", "copyPortalDir success");
    _return = responseStr(static_cast<int>(SdpPromoteErrc::successful),
                          sdpPromoteMessage(SdpPromoteErrc::successful), "");
}

void SdpPromoteServiceImpl::copyPortalFileRecursion(const std::string& src,
                                                    const std::string& dst) {
    boost::system::error_code ec;
    if (missing(fs::status(dst, ec).type())) {
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
            HP_LOG(spdlog::level::warn, "{}; Reason: {}",
                   sdpPromoteMessage(SdpPromoteErrc::copyFileError), ec.message());
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
