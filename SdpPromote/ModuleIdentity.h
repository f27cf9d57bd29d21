#pragma once
// What the module tells the host about itself.

#include <cstdint>

namespace corvid::identity {

inline constexpr const char* kGuid = "7c9e6679-7425-40de-944b-e07fc1f90ae7";
inline constexpr const char* kName = "HelionPromote";
// Set from the VERSION file by the build.
inline constexpr const char* kVersion = HELION_MODULE_VERSION;
inline constexpr int32_t kPriority = 0;

}  // namespace corvid::identity
