#pragma once
// Reading and copying files that callers name: only regular files, read through one descriptor,
// so that a device, a pipe or a file swapped between two looks is never what gets used.

#include <cstddef>
#include <string>

#include "common/FileDescriptor.h"

namespace corvid::portal {

/// Opens path for reading without waiting for a FIFO's writer and without taking a terminal.
/// Invalid (errno set) when it cannot be opened.
FileDescriptor openForReading(const std::string& path);

/// Reads the file open on fd, whole, into out. Empty on success; otherwise why it was refused:
/// not a regular file, more than limit bytes, or the system's read error.
std::string readRegularFile(int fd, std::size_t limit, std::string& out);

/// Copies the regular file from into to, replacing to only once every byte is written (through
/// a temporary file beside it), so a failed copy leaves the old target as it was and no partial
/// file. Works across file systems. Empty on success; otherwise the reason.
std::string copyRegularFile(const std::string& from, const std::string& to);

}  // namespace corvid::portal
