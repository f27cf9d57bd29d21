#include "SdpPromote/RegularFile.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <deque>
#include <memory>
#include <vector>

#include "SdpPromote/InstalledModes.h"
#include "SdpPromote/PortalPath.h"
#include "SdpPromote/platform/LargePages.h"

namespace corvid::portal {
namespace {

constexpr std::size_t kChunkSize = 64 * 1024;

std::string systemReason(int error) {
    return std::strerror(error);
}

// The regular file's status, or why the descriptor is not one.
std::string statRegular(int fd, struct stat& status) {
    if (::fstat(fd, &status) != 0) {
        return systemReason(errno);
    }
    if (!S_ISREG(status.st_mode)) {
        return "not a regular file";
    }
    return {};
}

// read() retried on interruption; -1 with errno on failure.
ssize_t readSome(int fd, char* buffer, std::size_t size) {
    ssize_t got = 0;
    do {
        got = ::read(fd, buffer, size);
    } while (got < 0 && errno == EINTR);
    return got;
}

bool writeAll(int fd, const char* data, std::size_t size) {
    while (size > 0) {
        const ssize_t written = ::write(fd, data, size);
        if (written < 0) {
            if (errno == EINTR) {
                continue;
            }
            return false;
        }
        data += written;
        size -= static_cast<std::size_t>(written);
    }
    return true;
}

std::string tooLarge(std::size_t limit) {
    return "larger than " + std::to_string(limit) + " bytes";
}

// Copies the first size bytes of in to out: the size the source had when it was opened, so a
// file that keeps growing cannot keep the copy going.
std::string copyBytes(int in, int out, off_t size) {
    std::vector<char> buffer(kChunkSize);
    off_t left = size;
    while (left > 0) {
        const std::size_t want = left < static_cast<off_t>(buffer.size())
                                     ? static_cast<std::size_t>(left)
                                     : buffer.size();
        const ssize_t got = readSome(in, buffer.data(), want);
        if (got < 0) {
            return systemReason(errno);
        }
        if (got == 0) {
            break;
        }
        if (!writeAll(out, buffer.data(), static_cast<std::size_t>(got))) {
            return systemReason(errno);
        }
        left -= got;
    }
    return {};
}

// Temporary files of a copy: a fixed prefix and mkstemp's six characters, short whatever the
// target's name, and recognisable so that those of an interrupted copy can be removed later.
constexpr char kTemporaryPrefix[] = ".helion-copy-";
constexpr std::size_t kTemporaryNameLength = sizeof kTemporaryPrefix - 1 + 6;

bool isCopyTemporary(const char* name) {
    if (std::strlen(name) != kTemporaryNameLength ||
        std::strncmp(name, kTemporaryPrefix, sizeof kTemporaryPrefix - 1) != 0) {
        return false;
    }
    for (const char* c = name + sizeof kTemporaryPrefix - 1; *c != '\0'; ++c) {
        if (!std::isalnum(static_cast<unsigned char>(*c))) {
            return false;
        }
    }
    return true;
}

// A temporary file in a directory, removed again unless renamed away.
class CopyTemporary {
public:
    explicit CopyTemporary(const std::string& directory)
        : path_(joinPortalPath(directory, std::string(kTemporaryPrefix) + "XXXXXX")) {
        fd_.reset(::mkostemp(path_.data(), O_CLOEXEC));
        created_ = static_cast<bool>(fd_);
    }
    ~CopyTemporary() {
        if (created_) {
            ::unlink(path_.c_str());
        }
    }
    CopyTemporary(const CopyTemporary&) = delete;
    CopyTemporary& operator=(const CopyTemporary&) = delete;

    int fd() const { return fd_.get(); }
    explicit operator bool() const { return static_cast<bool>(fd_); }

    // Closes the file and moves it onto target.
    std::string renameTo(const std::string& target) {
        if (::close(fd_.release()) != 0 || ::rename(path_.c_str(), target.c_str()) != 0) {
            return systemReason(errno);
        }
        created_ = false;
        return {};
    }

private:
    std::string path_;
    FileDescriptor fd_;
    bool created_ = false;
};

std::string directoryOf(const std::string& path) {
    const auto slash = path.rfind('/');
    if (slash == std::string::npos) {
        return ".";
    }
    return slash == 0 ? "/" : path.substr(0, slash);
}

// Empty when size more bytes fit on directory's file system.
std::string roomFor(const std::string& directory, std::uint64_t size) {
    struct statvfs space {};
    if (::statvfs(directory.c_str(), &space) != 0) {
        return systemReason(errno);
    }
    const auto free = static_cast<std::uint64_t>(space.f_bavail) * space.f_frsize;
    if (size > free) {
        return systemReason(ENOSPC) + ": " + std::to_string(size) + " bytes needed, " +
               std::to_string(free) + " free";
    }
    return {};
}

// Link resolution gives up after this many links, as the system does.
constexpr int kMaxLinks = 40;

FileDescriptor openDirectory(int at, const char* name) {
    return FileDescriptor(::openat(at, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
}

// Puts the components of path in front of those left to walk. Empty components go; a trailing
// "/" becomes "." so that the last component must be a directory.
void prependComponents(const std::string& path, std::deque<std::string>& left) {
    std::vector<std::string> parts;
    std::size_t begin = 0;
    while (begin <= path.size()) {
        const std::size_t end = std::min(path.find('/', begin), path.size());
        if (end > begin) {
            parts.push_back(path.substr(begin, end - begin));
        }
        begin = end + 1;
    }
    if (!path.empty() && path.back() == '/') {
        parts.emplace_back(".");
    }
    left.insert(left.begin(), parts.begin(), parts.end());
}

bool readLink(int directory, const std::string& name, std::size_t hint, std::string& target) {
    std::string buffer(hint + 1, '\0');
    for (;;) {
        const ssize_t got = ::readlinkat(directory, name.c_str(), buffer.data(), buffer.size());
        if (got < 0) {
            return false;
        }
        if (static_cast<std::size_t>(got) < buffer.size()) {
            buffer.resize(static_cast<std::size_t>(got));
            target = std::move(buffer);
            return true;
        }
        buffer.resize(buffer.size() * 2);
    }
}

// Opens name in directory if it is still the regular file that looked describes.
FileDescriptor openLookedAt(int directory, const std::string& name, const struct stat& looked,
                            std::string& refused) {
    if (!S_ISREG(looked.st_mode)) {
        refused = kNotRegular;
        return FileDescriptor();
    }
    // Should another file take the name meanwhile: a link is not followed, and a pipe's open does
    // not wait for a writer; either is then refused on its descriptor.
    FileDescriptor file(::openat(directory, name.c_str(),
                                 O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK | O_NOFOLLOW));
    struct stat opened {};
    if (!file || ::fstat(file.get(), &opened) != 0) {
        return FileDescriptor();
    }
    if (!S_ISREG(opened.st_mode) || opened.st_dev != looked.st_dev ||
        opened.st_ino != looked.st_ino) {
        refused = kNotRegular;
        return FileDescriptor();
    }
    return file;
}

}  // namespace

FileDescriptor openRegularFile(const std::string& path, std::string& refused) {
    refused.clear();
    if (path.empty()) {
        errno = ENOENT;
        return FileDescriptor();
    }
    FileDescriptor directory = openDirectory(AT_FDCWD, path.front() == '/' ? "/" : ".");
    std::deque<std::string> left;
    prependComponents(path, left);
    int links = 0;
    while (directory && !left.empty()) {
        const std::string name = std::move(left.front());
        left.pop_front();
        struct stat status {};
        if (::fstatat(directory.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
            return FileDescriptor();
        }
        if (S_ISLNK(status.st_mode)) {
            std::string target;
            if (++links > kMaxLinks) {
                errno = ELOOP;
                return FileDescriptor();
            }
            if (!readLink(directory.get(), name, static_cast<std::size_t>(status.st_size),
                          target)) {
                return FileDescriptor();
            }
            if (!target.empty() && target.front() == '/') {
                directory = openDirectory(AT_FDCWD, "/");
            }
            prependComponents(target, left);
            continue;
        }
        if (left.empty()) {
            return openLookedAt(directory.get(), name, status, refused);
        }
        if (!S_ISDIR(status.st_mode)) {
            errno = ENOTDIR;
            return FileDescriptor();
        }
        directory = openDirectory(directory.get(), name.c_str());
    }
    if (directory) {
        refused = kNotRegular;  // the path ends at a directory
    }
    return FileDescriptor();
}

std::string readRegularFile(int fd, std::size_t limit, std::string& out) {
    struct stat status {};
    if (std::string refused = statRegular(fd, status); !refused.empty()) {
        return refused;
    }
    if (static_cast<std::uintmax_t>(status.st_size) > limit) {
        return tooLarge(limit);
    }
    // The size is a hint only: files under /proc report 0, and a file may grow while it is
    // read. Past it, reads go through a small buffer, so that finding the end costs no copy of
    // the whole content.
    std::string content;
    content.reserve(static_cast<std::size_t>(status.st_size));
    // Before the buffer's first touch: a package is tens of megabytes, and page faults are most of
    // the cost of reading it.
    preferLargePages(&content[0], content.capacity());
    content.resize(static_cast<std::size_t>(status.st_size));
    std::size_t filled = 0;
    char more[16 * 1024];
    for (;;) {
        ssize_t got = 0;
        if (filled < content.size()) {
            got = readSome(fd, &content[filled], content.size() - filled);
            filled += got > 0 ? static_cast<std::size_t>(got) : 0;
        } else {
            got = readSome(fd, more, sizeof more);
            if (got > 0) {
                if (content.size() + static_cast<std::size_t>(got) > limit) {
                    return tooLarge(limit);
                }
                content.append(more, static_cast<std::size_t>(got));
                filled = content.size();
            }
        }
        if (got < 0) {
            return systemReason(errno);
        }
        if (got == 0) {
            break;
        }
    }
    content.resize(filled);
    out = std::move(content);
    return {};
}

std::string copyRegularFile(const std::string& from, const std::string& to, std::uint64_t& budget) {
    std::string refused;
    const FileDescriptor in = openRegularFile(from, refused);
    if (!in) {
        return refused.empty() ? systemReason(errno) : refused;
    }
    struct stat status {};
    if (std::string failed = statRegular(in.get(), status); !failed.empty()) {
        return failed;
    }
    // Judged on the size before anything is written: a sparse file of terabytes is refused,
    // not written out until the disk is full.
    const auto size = static_cast<std::uint64_t>(status.st_size);
    if (size > budget) {
        return tooLarge(static_cast<std::size_t>(budget)) + " this copy may still write";
    }
    const std::string directory = directoryOf(to);
    if (std::string full = roomFor(directory, size); !full.empty()) {
        return full;
    }
    CopyTemporary temporary(directory);
    if (!temporary) {
        return systemReason(errno);
    }
    if (std::string failed = copyBytes(in.get(), temporary.fd(), status.st_size); !failed.empty()) {
        return failed;
    }
    // The portal's mode, not the source's; and on disk before the source can be removed.
    if (::fchmod(temporary.fd(), kInstalledFileMode) != 0 || ::fsync(temporary.fd()) != 0) {
        return systemReason(errno);
    }
    if (std::string failed = temporary.renameTo(to); !failed.empty()) {
        return failed;
    }
    budget -= size;
    return {};
}

void removeCopyLeftovers(const std::string& directory) {
    const std::unique_ptr<DIR, int (*)(DIR*)> entries(::opendir(directory.c_str()), ::closedir);
    if (!entries) {
        return;
    }
    const int at = ::dirfd(entries.get());
    while (const dirent* entry = ::readdir(entries.get())) {
        struct stat status {};
        if (isCopyTemporary(entry->d_name) &&
            ::fstatat(at, entry->d_name, &status, AT_SYMLINK_NOFOLLOW) == 0 &&
            S_ISREG(status.st_mode)) {
            ::unlinkat(at, entry->d_name, 0);
        }
    }
}

std::string syncDirectory(const std::string& directory) {
    const FileDescriptor fd(::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    // EINVAL: a file system with nothing to sync for a directory.
    if (!fd || (::fsync(fd.get()) != 0 && errno != EINVAL)) {
        return systemReason(errno);
    }
    return {};
}

}  // namespace corvid::portal
