// copyPortalDir: move the static resource files of an unpacked portal below the portal root.
#include <sys/stat.h>

#include <boost/filesystem.hpp>
#include <cctype>
#include <set>
#include <utility>

#include "SdpPromote/PortalOperation.h"
#include "SdpPromote/PortalPath.h"
#include "SdpPromote/RegularFile.h"
#include "common/Log.h"
#include "common/ScopeGuard.h"
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
    DirectoriesOnPath onPath;
    const std::size_t failures = copyPortalFileRecursion(req.srcDir, target, onPath);

    if (failures > 0) {
        // The caller's files are the only copy of what did not arrive: they stay where they are.
        HP_LOG(spdlog::level::warn, "srcDir:{} is kept; Reason: {} file(s) not copied", req.srcDir,
               failures);
    } else {
        ec.clear();
        fs::remove_all(req.srcDir, ec);
        if (ec) {
            // A source left behind does not undo the copy.
            portal::logFailure("copyPortalDir", __LINE__, SdpPromoteErrc::delFileError, ec);
        }
    }

    HP_LOG(spdlog::level::info, "{}", "copyPortalDir success");
    portal::answerSuccess(_return);
}

void SdpPromoteServiceImpl::copyPortalFileRecursion(const std::string& src,
                                                    const std::string& dst) {
    DirectoriesOnPath onPath;
    copyPortalFileRecursion(src, dst, onPath);
}

std::size_t SdpPromoteServiceImpl::copyPortalFileRecursion(const std::string& src,
                                                           const std::string& dst,
                                                           DirectoriesOnPath& onPath) {
    // A directory that is already being copied further up this path is reached again only
    // through a link back up the tree: entering it would never end.
    struct stat status {};
    const bool known = ::stat(src.c_str(), &status) == 0;
    const DirectoryId id{static_cast<uint64_t>(status.st_dev),
                         static_cast<uint64_t>(status.st_ino)};
    if (known && !onPath.insert(id).second) {
        HP_LOG(spdlog::level::warn, "skip dir:{}; Reason: {}", src, "a link back up the tree");
        return 0;
    }
    ScopeGuard leave([&onPath, id, known] {
        if (known) {
            onPath.erase(id);
        }
    });
    std::size_t failures = 0;

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
            failures += copyPortalFileRecursion(entry->path().string(), entryTarget, onPath);
            continue;
        }
        if (!stringInList(name, copyFilter_)) {
            continue;
        }
        // Byte by byte, not with a kernel copy call, which refuses to cross file systems.
        const std::string failure = portal::copyRegularFile(entry->path().string(), entryTarget);
        if (!failure.empty()) {
            HP_LOG(spdlog::level::warn, "{}; Reason: {}",
                   sdpPromoteMessage(SdpPromoteErrc::copyFileError), failure);
            ++failures;
        }
    }
    return failures;
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
