#pragma once
// Whole-file reads and all-or-nothing writes for the command-line tools.

#include <sys/types.h>

#include <stdexcept>
#include <string>

namespace helion::tools {

/// A failure the tools report as one line and a non-zero exit.
class ToolError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// The file's bytes. Throws ToolError naming the path and the reason.
std::string readWholeFile(const std::string& path);

/// Writes data to a temporary file beside path with the given mode, then renames it over path,
/// so a reader never sees half a file. Throws ToolError; leaves no temporary file behind.
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
