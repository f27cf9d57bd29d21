// copyPortalDir: move the static resource files of an unpacked portal below the portal root.
#include <sys/stat.h>

#include <boost/filesystem.hpp>
#include <cctype>
#include <set>
#include <utility>

#include "SdpPromote/InstalledModes.h"
#include "SdpPromote/PortalOperation.h"
#include "SdpPromote/PortalPath.h"
#include "SdpPromote/RegularFile.h"
#include "common/Log.h"
#include "common/ScopeGuard.h"
#include "http/ResponseStr.h"
#include "model/CopyPortalDirReq.h"

namespace corvid {

namespace fs = boost::filesystem;

namespace {

using DirectoryId = std::pair<uint64_t, uint64_t>;

// The directory path names, followed through links; false when it cannot be looked at.
bool directoryId(const fs::path& path, DirectoryId& id) {
    struct stat status {};
    if (::stat(path.c_str(), &status) != 0) {
        return false;
    }
    id = {static_cast<uint64_t>(status.st_dev), static_cast<uint64_t>(status.st_ino)};
    return true;
}

// True when inner is outer or lies below it: by the resolved path, or by device and inode of inner
// or of one of its parents (a bind mount shows one directory under two paths).
bool isWithin(const fs::path& inner, const fs::path& outer) {
    DirectoryId outerId{};
    const bool known = directoryId(outer, outerId);
    for (fs::path at = inner; !at.empty(); at = at.parent_path()) {
        DirectoryId id{};
        if (at == outer || (known && directoryId(at, id) && id == outerId)) {
            return true;
        }
        if (at == at.root_path()) {
            break;
        }
    }
    return false;
}

// Why a copy from src into target would copy a directory into itself, or empty. A copy onto
// itself would remove what it copied; one into itself would never end.
std::string overlapOf(const std::string& src, const std::string& target) {
    boost::system::error_code ec;
    const fs::path source = fs::canonical(src, ec);
    const fs::path into = ec ? fs::path() : fs::weakly_canonical(target, ec);
    if (ec) {
        return {};  // the walk meets whatever is wrong with them and reports it
    }
    const bool targetInSource = isWithin(into, source);
    const bool sourceInTarget = isWithin(source, into);
    if (targetInSource && sourceInTarget) {
        return "source and target are the same directory";
    }
    if (targetInSource) {
        return "the target lies inside the source";
    }
    return sourceInTarget ? "the source lies inside the target" : "";
}

}  // namespace

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

    if (const std::string overlap = overlapOf(req.srcDir, target); !overlap.empty()) {
        HP_LOG(spdlog::level::warn, "srcDir:{} and target:{} refused; Reason: {}", req.srcDir,
               target, overlap);
        return portal::answerFailure(_return, "copyPortalDir", __LINE__,
                                     SdpPromoteErrc::copyFileError);
    }

    portal::createInstalledDirectories(target, ec);
    if (ec) {
        // The caller gets the system's own text here, not the category's.
        return portal::answerCreateDirFailure(_return, "copyPortalDir", __LINE__, ec);
    }

    // Errors thrown while walking the source reach the RPC layer unchanged.
    CopyWalk walk;
    directoryId(target, walk.target);
    const std::size_t failures = copyPortalFileRecursion(req.srcDir, target, walk);

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
    CopyWalk walk;
    copyPortalFileRecursion(src, dst, walk);
}

std::size_t SdpPromoteServiceImpl::copyPortalFileRecursion(const std::string& src,
                                                           const std::string& dst, CopyWalk& walk) {
    // A directory that is already being copied further up this path is reached again only
    // through a link back up the tree: entering it would never end. Nor would entering the
    // target, which grows as it is copied.
    DirectoryId id{};
    const bool known = directoryId(src, id);
    if (known && id == walk.target) {
        HP_LOG(spdlog::level::warn, "skip dir:{}; Reason: {}", src, "a link into the target");
        return 0;
    }
    if (known && !walk.onPath.insert(id).second) {
        HP_LOG(spdlog::level::warn, "skip dir:{}; Reason: {}", src, "a link back up the tree");
        return 0;
    }
    ScopeGuard leave([&walk, id, known] {
        if (known) {
            walk.onPath.erase(id);
        }
    });
    std::size_t failures = 0;

    boost::system::error_code ec;
    if (portal::isMissing(fs::status(dst, ec).type())) {
        HP_LOG(spdlog::level::info, "path:{} is not exists, will create", dst);
        portal::createInstalledDirectories(dst, ec);
        if (ec) {
            throw fs::filesystem_error("create_directories", dst, ec);
        }
    }
    portal::removeCopyLeftovers(dst);

    const auto failed = [&failures](const std::string& reason) {
        HP_LOG(spdlog::level::warn, "{}; Reason: {}",
               sdpPromoteMessage(SdpPromoteErrc::copyFileError), reason);
        ++failures;
    };
    for (fs::directory_iterator entry(src), end; entry != end; ++entry) {
        const std::string name = entry->path().filename().string();
        const std::string entryTarget = joinPortalPath(dst, name);
        ec.clear();
        // Every subdirectory is entered, so one without matching files still appears, empty.
        if (fs::is_directory(fs::status(entry->path(), ec))) {
            failures += copyPortalFileRecursion(entry->path().string(), entryTarget, walk);
            continue;
        }
        if (!stringInList(name, copyFilter_)) {
            continue;
        }
        // Byte by byte, not with a kernel copy call, which refuses to cross file systems.
        const std::string failure =
            portal::copyRegularFile(entry->path().string(), entryTarget, walk.budget);
        if (!failure.empty()) {
            failed(failure);
        }
    }
    // The names renamed in here are durable before the caller's source can be removed.
    if (const std::string failure = portal::syncDirectory(dst); !failure.empty()) {
        failed(failure);
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
