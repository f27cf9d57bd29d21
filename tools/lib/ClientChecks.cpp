#include "tools/lib/ClientChecks.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "tools/lib/FileIo.h"

namespace helion::tools {

std::string portalNameSlip(const std::string& name) {
    bool namesSomething = false;
    std::size_t start = 0;
    while (start <= name.size()) {
        const std::size_t end = std::min(name.find('/', start), name.size());
        const std::string component = name.substr(start, end - start);
        if (component == "..") {
            return "has a '..' component and may leave the portal root";
        }
        namesSomething = namesSomething || (!component.empty() && component != ".");
        start = end + 1;
    }
    return namesSomething ? std::string() : "names the whole portal root";
}

void checkInputFile(const std::string& path, const std::string& what, std::size_t minBytes) {
    const std::string prefix = "cannot use the " + what + " '" + path + "': ";
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0) {
        throw ToolError(prefix + std::strerror(errno));
    }
    if (!S_ISREG(info.st_mode)) {
        throw ToolError(prefix + "not a regular file");
    }
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        throw ToolError(prefix + std::strerror(errno));
    }
    ::close(fd);
    if (static_cast<std::size_t>(info.st_size) < minBytes) {
        throw ToolError(prefix + "it has " + std::to_string(info.st_size) + " bytes, fewer than " +
                        std::to_string(minBytes));
    }
}

}  // namespace helion::tools
