#pragma once
// Scratch files for the portal benchmarks: random payloads, portal-like trees, signed packages.

#include <cstdint>
#include <string>

namespace helion::bench {

/// A fresh directory below the system's temp directory, removed with everything in it.
class ScratchDir {
public:
    ScratchDir();
    ~ScratchDir();
    ScratchDir(const ScratchDir&) = delete;
    ScratchDir& operator=(const ScratchDir&) = delete;

    const std::string& path() const { return path_; }
    std::string file(const std::string& name) const { return path_ + "/" + name; }

private:
    std::string path_;
};

/// Writes size pseudo-random (incompressible) bytes to path.
void writeRandomFile(const std::string& path, std::uint64_t size, std::uint64_t seed);

/// Fills dir with about totalBytes in files nested a few levels deep: text assets (css, js, json,
/// html) that compress well beside images and fonts that do not. Returns the bytes written.
std::uint64_t writePortalTree(const std::string& dir, std::uint64_t totalBytes, unsigned files,
                              std::uint64_t seed);

/// Writes the detached signature of the file at path with the development key to sigPath.
void signWithDevKey(const std::string& path, const std::string& sigPath);

}  // namespace helion::bench
