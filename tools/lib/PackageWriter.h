#pragma once
// Packs a portal tree into a zip the module can extract, byte for byte the same on every run.

#include <cstdint>
#include <string>
#include <vector>

namespace helion::tools {

struct PackSummary {
    std::vector<std::string> entries;
    std::uint64_t bytes = 0;
};

/// Longest entry name the module takes whole.
inline constexpr std::size_t kMaxEntryName = 255;

/// Entries from this size up carry their sizes in a zip64 field: a 32-bit size field holds at
/// most 0xfffffffe, its all-ones value meaning "see the zip64 field".
inline constexpr std::uint64_t kZip64EntryBytes = 0xffffffffULL;

/// The regular files below dir as "/"-separated relative names, sorted bytewise; exclude is left
/// out (so the output may sit inside the tree). Throws ToolError for links, special files,
/// over-long names or an unreadable tree.
std::vector<std::string> listPortalFiles(const std::string& dir, const std::string& exclude = {});

/// Writes dir's files to zipPath (deflated, fixed 1980-01-01 timestamps, no directory entries)
/// through a temporary file renamed into place. Throws ToolError, also for a tree without files
/// (the module refuses an archive without entries). Tests lower zip64From to reach the switch to
/// zip64 sizes without writing 4 GiB.
PackSummary packPortal(const std::string& dir, const std::string& zipPath,
                       std::uint64_t zip64From = kZip64EntryBytes);

}  // namespace helion::tools
