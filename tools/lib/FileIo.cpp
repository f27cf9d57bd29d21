#include "tools/lib/FileIo.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

namespace helion::tools {

namespace {

[[noreturn]] void failRead(const std::string& path, int error) {
    throw ToolError("cannot read '" + path + "': " + std::strerror(error));
}

}  // namespace

InputFile::InputFile(std::string path) : path_(std::move(path)) {
    fd_ = ::open(path_.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd_ < 0) {
        failRead(path_, errno);
    }
    struct stat info {};
    if (::fstat(fd_, &info) != 0) {
        const int error = errno;
        ::close(fd_);
        failRead(path_, error);
    }
    if (S_ISDIR(info.st_mode)) {
        ::close(fd_);
        throw ToolError("cannot read '" + path_ + "': it is a directory");
    }
    ::posix_fadvise(fd_, 0, 0, POSIX_FADV_SEQUENTIAL);
}

InputFile::~InputFile() {
    ::close(fd_);
}

std::size_t InputFile::read(void* buffer, std::size_t size) {
    auto* cursor = static_cast<char*>(buffer);
    std::size_t got = 0;
    while (got < size) {
        const ssize_t n = ::read(fd_, cursor + got, size - got);
        if (n < 0) {
            if (errno == EINTR) {
                continue;
            }
            failRead(path_, errno);
        }
        if (n == 0) {
            break;
        }
        got += static_cast<std::size_t>(n);
    }
    return got;
}

std::string readWholeFile(const std::string& path, std::size_t maxBytes) {
    InputFile in(path);
    std::string data;
    std::size_t got = 0;
    do {
        // Grow as the file goes: sizes from stat are not to be trusted (pipes, /proc).
        const std::size_t start = data.size();
        data.resize(start + std::min(kChunkBytes, maxBytes - start + 1));
        got = in.read(data.data() + start, data.size() - start);
        data.resize(start + got);
        if (data.size() > maxBytes) {
            throw ToolError("cannot read '" + path + "': larger than " + std::to_string(maxBytes) +
                            " bytes");
        }
    } while (got > 0);
    return data;
}

StagedFile::StagedFile(std::string path, const std::string& data, mode_t mode)
    : path_(std::move(path)) {
    std::string pattern = path_ + ".tmp-XXXXXX";
    std::vector<char> name(pattern.begin(), pattern.end());
    name.push_back('\0');
    const int fd = ::mkstemp(name.data());
    if (fd < 0) {
        throw ToolError("cannot write '" + path_ + "': " + std::strerror(errno));
    }
    temp_ = name.data();
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
            fail(error);
        }
        cursor += written;
        left -= static_cast<std::size_t>(written);
    }
    if (::fchmod(fd, mode) != 0 || ::fsync(fd) != 0 || ::close(fd) != 0) {
        fail(errno);
    }
}

StagedFile::~StagedFile() {
    if (!temp_.empty()) {
        ::unlink(temp_.c_str());
    }
}

void StagedFile::fail(int error) {
    ::unlink(temp_.c_str());
    temp_.clear();
    throw ToolError("cannot write '" + path_ + "': " + std::strerror(error));
}

void StagedFile::commit() {
    if (::rename(temp_.c_str(), path_.c_str()) != 0) {
        fail(errno);
    }
    temp_.clear();
}

void writeFileAtomically(const std::string& path, const std::string& data, mode_t mode) {
    StagedFile(path, data, mode).commit();
}

RemoveOnFailure::~RemoveOnFailure() {
    if (!path_.empty()) {
        ::unlink(path_.c_str());
    }
}

}  // namespace helion::tools
