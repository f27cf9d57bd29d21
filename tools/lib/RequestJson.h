#pragma once
// The JSON parameter texts of the three portal methods.

#include <string>
#include <vector>

namespace helion::tools {

/// {"srcZip":...,"portalDir":...,"signFile":...}
std::string updatePortalParam(const std::string& srcZip, const std::string& portalDir,
                              const std::string& signFile);
/// {"srcDir":...,"portalDir":...}
std::string copyPortalDirParam(const std::string& srcDir, const std::string& portalDir);
/// {"portalDirs":[...]}
std::string delPortalDirParam(const std::vector<std::string>& portalDirs);

}  // namespace helion::tools
