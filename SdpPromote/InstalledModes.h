#pragma once
// What the module installs belongs to the portal, whatever the host's umask or the modes of the
// caller's files: readable by the user interface, writable by the host's user alone, never
// set-id. Modes are set explicitly after creation, since the umask can only take bits away.

#include <sys/types.h>

#include <boost/filesystem/path.hpp>
#include <boost/system/error_code.hpp>
#include <string>

#include "common/FileDescriptor.h"

namespace corvid::portal {

inline constexpr mode_t kInstalledFileMode = 0644;
inline constexpr mode_t kInstalledDirectoryMode = 0755;

/// Creates path and its missing parents, each with kInstalledDirectoryMode; an existing directory
/// is no error, nor are those that exist already changed.
void createInstalledDirectories(const boost::filesystem::path& path, boost::system::error_code& ec);

/// Creates or truncates the file at path for writing, with kInstalledFileMode. A link at path is
/// not followed. Invalid, with errno set, on failure.
FileDescriptor createInstalledFile(const std::string& path);

}  // namespace corvid::portal
