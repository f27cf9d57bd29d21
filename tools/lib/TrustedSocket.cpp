#include "tools/lib/TrustedSocket.h"

#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include <boost/filesystem.hpp>
#include <cerrno>
#include <cstring>

#include "tools/lib/FileIo.h"

namespace helion::tools {

namespace fs = boost::filesystem;

namespace {

std::string ownerName(uid_t uid) {
    const passwd* entry = ::getpwuid(uid);
    const std::string id = "uid " + std::to_string(uid);
    return entry != nullptr ? std::string(entry->pw_name) + " (" + id + ")" : id;
}

[[noreturn]] void refuse(const fs::path& dir, const struct stat& info, const std::string& why) {
    throw ToolError("refusing the socket directory '" + dir.string() + "' (owner " +
                    ownerName(info.st_uid) + "): " + why +
                    "; another user could have put a socket there");
}

// The directory and each one above it, as the kernel reaches them.
void checkChain(const fs::path& directory) {
    boost::system::error_code error;
    const fs::path resolved = fs::canonical(directory, error);
    if (error) {
        return;  // nothing there to connect to: connecting says so
    }
    const uid_t self = ::geteuid();
    bool innermost = true;
    for (fs::path dir = resolved; !dir.empty(); dir = dir.parent_path()) {
        struct stat info {};
        if (::stat(dir.c_str(), &info) != 0) {
            throw ToolError("cannot check the socket directory '" + dir.string() +
                            "': " + std::strerror(errno));
        }
        if (info.st_uid != self && info.st_uid != 0) {
            refuse(dir, info, "it belongs to another user");
        }
        const bool sticky = (info.st_mode & S_ISVTX) != 0;
        if ((info.st_mode & (S_IWGRP | S_IWOTH)) != 0 && (innermost || !sticky)) {
            refuse(dir, info,
                   (info.st_mode & S_IWOTH) != 0 ? "all users may write to it"
                                                 : "its group may write to it");
        }
        innermost = false;
        if (dir == dir.root_path()) {
            break;
        }
    }
}

}  // namespace

void requireTrustedSocketDirectory(const std::string& socketPath) {
    // A link is only as good as the directory it sits in: each hop's directory must pass.
    constexpr int kMaxHops = 40;
    fs::path path = fs::absolute(socketPath);
    for (int hop = 0; hop < kMaxHops; ++hop) {
        checkChain(path.parent_path());
        boost::system::error_code error;
        if (!fs::is_symlink(path, error)) {
            return;
        }
        const fs::path target = fs::read_symlink(path, error);
        if (error) {
            return;
        }
        path = target.is_absolute() ? target : path.parent_path() / target;
    }
}

}  // namespace helion::tools
