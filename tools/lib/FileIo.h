#pragma once
// File reads in fixed-size chunks or whole, and all-or-nothing writes for the command-line tools.

#include <sys/types.h>

#include <cstdint>
#include <stdexcept>
#include <string>

namespace helion::tools {

/// A failure the tools report as one line and a non-zero exit.
class ToolError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// A file opened for reading front to back. Anything but a directory opens, so pipes and
/// process substitutions work too. Every failure throws ToolError naming the path and the reason.
class InputFile {
public:
    explicit InputFile(std::string path);
    ~InputFile();
    InputFile(const InputFile&) = delete;
    InputFile& operator=(const InputFile&) = delete;

    /// Fills buffer as far as the file goes; returns the bytes read, fewer only at the end.
    std::size_t read(void* buffer, std::size_t size);
    const std::string& path() const { return path_; }

private:
    std::string path_;
    int fd_ = -1;
};

/// The size of buffer the tools stream files through: memory stays flat whatever the file size.
inline constexpr std::size_t kChunkBytes = 1 << 20;

/// The file's bytes; refuses more than maxBytes. Throws ToolError naming the path and the reason.
std::string readWholeFile(const std::string& path, std::size_t maxBytes = SIZE_MAX - 1);

/// Data written and synced to a temporary file beside path with the given mode; commit() renames
/// it over path, so a reader never sees half a file. Uncommitted, the temporary file is removed.
/// Throws ToolError naming path and the reason.
class StagedFile {
public:
    StagedFile(std::string path, const std::string& data, mode_t mode);
    ~StagedFile();
    StagedFile(const StagedFile&) = delete;
    StagedFile& operator=(const StagedFile&) = delete;
    void commit();

private:
    [[noreturn]] void fail(int error);
    std::string path_;
    std::string temp_;
};

/// A StagedFile committed at once.
void writeFileAtomically(const std::string& path, const std::string& data, mode_t mode = 0644);

/// Removes the file when the object dies unless released: for outputs still being written.
class RemoveOnFailure {
public:
    explicit RemoveOnFailure(std::string path) : path_(std::move(path)) {}
    ~RemoveOnFailure();
    RemoveOnFailure(const RemoveOnFailure&) = delete;
    RemoveOnFailure& operator=(const RemoveOnFailure&) = delete;
    void release() { path_.clear(); }

private:
    std::string path_;
};

}  // namespace helion::tools
