#pragma once
// Keeps descriptor creation and child spawning apart where the platform cannot.

namespace corvid::process::macos::details {

/// Held while a descriptor exists without close-on-exec and while a child is being spawned, so
/// that no child of the module inherits a descriptor meant for another. On Linux every
/// descriptor is born close-on-exec and the object holds nothing; elsewhere it holds one
/// process-wide lock. Spawns of the host's own code do not take it: a host that spawns from
/// other threads makes its descriptors close-on-exec itself.
class SpawnExclusion {
public:
    SpawnExclusion();
    ~SpawnExclusion();
    SpawnExclusion(const SpawnExclusion&) = delete;
    SpawnExclusion& operator=(const SpawnExclusion&) = delete;
};

}  // namespace corvid::process::macos::details
