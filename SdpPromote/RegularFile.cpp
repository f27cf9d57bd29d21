#include "SdpPromote/RegularFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <vector>

#include "SdpPromote/LargePages.h"

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

// A temporary file beside target, removed again unless kept.
class TemporaryBeside {
public:
    explicit TemporaryBeside(const std::string& target) {
        const auto slash = target.rfind('/');
        const std::string directory = slash == std::string::npos ? "" : target.substr(0, slash + 1);
        const std::string name = slash == std::string::npos ? target : target.substr(slash + 1);
        path_ = directory + "." + name + ".helion-XXXXXX";
        fd_.reset(::mkostemp(path_.data(), O_CLOEXEC));
    }
    ~TemporaryBeside() {
        if (fd_ && !kept_) {
            ::unlink(path_.c_str());
        }
    }
    TemporaryBeside(const TemporaryBeside&) = delete;
    TemporaryBeside& operator=(const TemporaryBeside&) = delete;

    int fd() const { return fd_.get(); }
    explicit operator bool() const { return static_cast<bool>(fd_); }

    // Closes the file and moves it onto target.
    std::string renameTo(const std::string& target) {
        if (::close(fd_.release()) != 0 || ::rename(path_.c_str(), target.c_str()) != 0) {
            return systemReason(errno);
        }
        kept_ = true;
        return {};
    }

private:
    std::string path_;
    FileDescriptor fd_;
    bool kept_ = false;
};

}  // namespace

FileDescriptor openForReading(const std::string& path) {
    return FileDescriptor(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
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

std::string copyRegularFile(const std::string& from, const std::string& to) {
    const FileDescriptor in = openForReading(from);
    if (!in) {
        return systemReason(errno);
    }
    struct stat status {};
    if (std::string refused = statRegular(in.get(), status); !refused.empty()) {
        return refused;
    }
    TemporaryBeside temporary(to);
    if (!temporary) {
        return systemReason(errno);
    }
    if (std::string failed = copyBytes(in.get(), temporary.fd(), status.st_size); !failed.empty()) {
        return failed;
    }
    // The source's permission bits, as a plain copy keeps them; never set-id bits.
    if (::fchmod(temporary.fd(), status.st_mode & 0777) != 0) {
        return systemReason(errno);
    }
    return temporary.renameTo(to);
}

}  // namespace corvid::portal
