#include "SdpPromote/InstalledModes.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <vector>

namespace corvid::portal {

namespace {

boost::system::error_code lastError() {
    return {errno, boost::system::system_category()};
}

bool isDirectory(const boost::filesystem::path& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

}  // namespace

void createInstalledDirectories(const boost::filesystem::path& path,
                                boost::system::error_code& ec) {
    ec.clear();
    std::vector<boost::filesystem::path> missing;
    for (auto at = path; !at.empty(); at = at.parent_path()) {
        struct stat status {};
        if (::stat(at.c_str(), &status) == 0) {
            if (!S_ISDIR(status.st_mode)) {
                ec.assign(EEXIST, boost::system::system_category());
                return;
            }
            break;
        }
        if (errno != ENOENT) {
            ec = lastError();
            return;
        }
        missing.push_back(at);
    }
    for (auto at = missing.rbegin(); at != missing.rend(); ++at) {
        if (::mkdir(at->c_str(), kInstalledDirectoryMode) != 0) {
            if (errno == EEXIST && isDirectory(*at)) {
                continue;  // made meanwhile, or the same directory spelt with "." or ".."
            }
            ec = lastError();
            return;
        }
        if (::chmod(at->c_str(), kInstalledDirectoryMode) != 0) {
            ec = lastError();
            return;
        }
    }
}

FileDescriptor createInstalledFile(const std::string& path) {
    FileDescriptor file(::open(
        path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOCTTY | O_NOFOLLOW | O_NONBLOCK,
        kInstalledFileMode));
    if (file && ::fchmod(file.get(), kInstalledFileMode) != 0) {
        return FileDescriptor();
    }
    return file;
}

}  // namespace corvid::portal
