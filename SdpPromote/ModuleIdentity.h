#pragma once
// What the module tells the host about itself.

#include <cstdint>

namespace corvid::identity {

inline constexpr const char* kGuid = "7c9e6679-7425-40de-944b-e07fc1f90ae7";
inline constexpr const char* kName = "HelionPromote";
// The version hosts read in the capacities text. It names the module's interface, so it stays
// fixed whatever version the packages (VERSION) carry.
inline constexpr const char* kVersion = "2.2.16.1";
inline constexpr int32_t kPriority = 0;

}  // namespace corvid::identity
