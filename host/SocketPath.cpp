#include "host/SocketPath.h"

#include <sys/stat.h>
#include <unistd.h>

#include <boost/asio/io_context.hpp>
#include <boost/asio/local/stream_protocol.hpp>
#include <boost/filesystem.hpp>
#include <cerrno>
#include <cstring>

#include "host/HostLog.h"
#include "host/StartupError.h"

namespace helion::host {

namespace fs = boost::filesystem;
using boost::asio::local::stream_protocol;

SocketState probeUnixSocket(const std::string& path, boost::system::error_code& error) {
    boost::asio::io_context io;
    stream_protocol::socket socket(io);
    socket.connect(stream_protocol::endpoint(path), error);
    if (!error) {
        return SocketState::Live;
    }
    return error == boost::asio::error::connection_refused ? SocketState::Stale
                                                           : SocketState::Unknown;
}

void createSocketDirectory(const std::string& dir) {
    struct stat existing {};
    if (::lstat(dir.c_str(), &existing) == 0 || errno != ENOENT) {
        return;
    }
    const fs::path path(dir);
    boost::system::error_code error;
    if (path.has_parent_path()) {
        fs::create_directories(path.parent_path(), error);
    }
    // Created private, not chmod-ed after: there is no moment in which others may enter.
    if (error || (::mkdir(dir.c_str(), 0700) != 0 && errno != EEXIST)) {
        throw StartupError("cannot create socket directory '" + dir +
                           "': " + (error ? error.message() : std::strerror(errno)));
    }
}

bool isPrivateDirectory(const std::string& dir, std::optional<gid_t> group) {
    struct stat dirStat {};
    // lstat: a link to a private directory is not one; whoever made the link chose the target.
    if (::lstat(dir.c_str(), &dirStat) != 0) {
        throw StartupError("cannot check socket directory '" + dir + "': " + std::strerror(errno));
    }
    const bool link = S_ISLNK(dirStat.st_mode);
    if (!link && !S_ISDIR(dirStat.st_mode)) {
        throw StartupError("socket directory '" + dir + "' is not a directory");
    }
    // The socket's group may need to enter the directory; nobody else may.
    const mode_t groupBits = group && dirStat.st_gid == *group ? 027 : 077;
    return !link && dirStat.st_uid == ::geteuid() && (dirStat.st_mode & groupBits) == 0;
}

void clearStaleSocket(const std::string& path) {
    struct stat existing {};
    if (::lstat(path.c_str(), &existing) != 0) {
        return;
    }
    if (!S_ISSOCK(existing.st_mode)) {
        throw StartupError("'" + path + "' exists and is not a socket; not replacing it");
    }
    boost::system::error_code probeError;
    switch (probeUnixSocket(path, probeError)) {
        case SocketState::Live:
            throw StartupError("another server is already listening on '" + path + "'");
        case SocketState::Stale:
            HOST_LOG(spdlog::level::info, "replacing stale socket '{}' left by a dead server",
                     path);
            if (::unlink(path.c_str()) != 0) {
                throw StartupError("cannot remove stale socket '" + path +
                                   "': " + std::strerror(errno));
            }
            return;
        case SocketState::Unknown:
            throw StartupError("cannot check socket '" + path + "': " + probeError.message());
    }
}

void prepareSocketPath(const std::string& path, const UnixSocketOptions& options) {
    const fs::path socket(path);
    const std::string dir = socket.has_parent_path() ? socket.parent_path().string() : ".";
    createSocketDirectory(dir);
    if (!isPrivateDirectory(dir, options.group)) {
        if (options.requirePrivateDirectory) {
            throw StartupError("socket directory '" + dir +
                               "' must be owned by this user with mode 0700 and not be a "
                               "symbolic link");
        }
        HOST_LOG(spdlog::level::warn,
                 "socket directory '{}' can be entered by other users; the socket itself is {}",
                 dir, options.group ? "0660" : "0600");
    }
    clearStaleSocket(path);
}

}  // namespace helion::host
