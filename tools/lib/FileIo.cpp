#include "tools/lib/FileIo.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>
#include <vector>

namespace helion::tools {

std::string readWholeFile(const std::string& path) {
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0) {
        throw ToolError("cannot read '" + path + "': " + std::strerror(errno));
    }
    if (S_ISDIR(info.st_mode)) {
        throw ToolError("cannot read '" + path + "': it is a directory");
    }
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        throw ToolError("cannot read '" + path + "': " + std::strerror(errno));
    }
    std::ostringstream out;
    out << in.rdbuf();
    if (in.bad()) {
        throw ToolError("cannot read '" + path + "': read error");
    }
    return out.str();
}

void writeFileAtomically(const std::string& path, const std::string& data, mode_t mode) {
    std::string pattern = path + ".tmp-XXXXXX";
    std::vector<char> name(pattern.begin(), pattern.end());
    name.push_back('\0');
    const int fd = ::mkstemp(name.data());
    if (fd < 0) {
        throw ToolError("cannot write '" + path + "': " + std::strerror(errno));
    }
    const std::string temp(name.data());
    RemoveOnFailure cleanup(temp);
    const char* cursor = data.data();
    std::size_t left = data.size();
    while (left > 0) {
        const ssize_t written = ::write(fd, cursor, left);
        if (written < 0) {
            if (errno == EINTR) {
                continue;
            }
            const int error = errno;
            ::close(fd);
            throw ToolError("cannot write '" + path + "': " + std::strerror(error));
        }
        cursor += written;
        left -= static_cast<std::size_t>(written);
    }
    if (::fchmod(fd, mode) != 0 || ::fsync(fd) != 0 || ::close(fd) != 0) {
        throw ToolError("cannot write '" + path + "': " + std::strerror(errno));
    }
    if (::rename(temp.c_str(), path.c_str()) != 0) {
        throw ToolError("cannot write '" + path + "': " + std::strerror(errno));
    }
    cleanup.release();
}

RemoveOnFailure::~RemoveOnFailure() {
    if (!path_.empty()) {
        ::unlink(path_.c_str());
    }
}

}  // namespace helion::tools
