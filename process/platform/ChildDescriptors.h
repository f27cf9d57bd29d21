#pragma once
// What a spawned child keeps of this process's descriptors: the standard streams only.

#include <spawn.h>

namespace corvid::process::macos::details {

/// Adds to actions the closing of every descriptor above standard error, after the actions
/// already added (so a dup2 onto a standard stream still sees its source). The caller holds a
/// SpawnExclusion from before this call until posix_spawn returns. Returns 0 or the error number.
int closeAllButStandardStreams(posix_spawn_file_actions_t* actions);

}  // namespace corvid::process::macos::details
