#pragma once
// Reading and copying files that callers name: only regular files, read through one descriptor,
// so that a device, a pipe or a file swapped between two looks is never what gets used.

#include <cstddef>
#include <cstdint>
#include <string>

#include "common/FileDescriptor.h"

namespace corvid::portal {

/// Why a path was not opened when it names something other than a regular file.
inline constexpr const char* kNotRegular = "not a regular file";

/// Opens path for reading only if it names a regular file, and never opens anything else: the
/// path is walked one component at a time through directory descriptors, links (in the middle
/// or at the end) are read and followed by the walk itself, the type of the last component is
/// known before it is opened, it is opened without following a link, and the descriptor must be
/// the file that was looked at. Invalid when not opened: with refused set to kNotRegular when the
/// path names anything but a regular file, otherwise with errno set.
FileDescriptor openRegularFile(const std::string& path, std::string& refused);

/// Reads the file open on fd, whole, into out. Empty on success; otherwise why it was refused:
/// not a regular file, more than limit bytes, or the system's read error.
std::string readRegularFile(int fd, std::size_t limit, std::string& out);

/// Copies the regular file from into to, replacing to only once every byte is written and synced
/// (through a temporary file of a fixed short name beside it, removed again on any failure), so a
/// failed copy leaves the old target as it was and no file of its own. The target gets mode 0644.
/// A file larger than budget or than the target's free space is refused before a byte of it is
/// written; budget shrinks by what was copied. Works across file systems. Empty on success;
/// otherwise the reason.
std::string copyRegularFile(const std::string& from, const std::string& to, std::uint64_t& budget);

/// Removes from directory the temporary files an interrupted copy left there.
void removeCopyLeftovers(const std::string& directory);

/// Syncs directory, so that the names renamed into it are durable. Empty on success.
std::string syncDirectory(const std::string& directory);

}  // namespace corvid::portal
