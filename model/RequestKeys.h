#pragma once
// JSON keys of the portal requests: the model registration and the HTTP schema checks share them.

namespace corvid::sdp_promote::keys {

inline constexpr const char* kSrcZip = "srcZip";
inline constexpr const char* kPortalDir = "portalDir";
inline constexpr const char* kSignFile = "signFile";
inline constexpr const char* kSrcDir = "srcDir";
inline constexpr const char* kPortalDirs = "portalDirs";

}  // namespace corvid::sdp_promote::keys
