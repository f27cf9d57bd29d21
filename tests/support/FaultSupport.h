#pragma once
// Signed packages and request texts for the fault tests.

#include <fstream>
#include <string>
#include <vector>

#include "portal/PackageKit.h"
#include "support/TestSupport.h"

namespace helion::test {

struct SignedPackage {
    std::string zip;
    std::string sig;
};

/// Signs whatever bytes lie at zip with the development key, next to it as zip + ".sig".
inline SignedPackage signAsItStands(const std::string& zip) {
    const std::string sig = zip + ".sig";
    std::ofstream(sig, std::ios::binary) << sign(readFile(zip), devPrivateKey().get());
    return {zip, sig};
}

/// A package of entries written to dir/name and signed with the development key.
inline SignedPackage signedPackage(const TempDir& dir, const std::string& name,
                                   const std::vector<ZipEntry>& entries) {
    const std::string zip = (dir.path() / name).string();
    writeZip(zip, entries);
    return signAsItStands(zip);
}

inline std::string updateRequest(const SignedPackage& package, const std::string& portalDir) {
    return R"({"srcZip":")" + package.zip + R"(","portalDir":")" + portalDir + R"(","signFile":")" +
           package.sig + R"("})";
}

inline std::string copyRequest(const std::string& srcDir, const std::string& portalDir) {
    return R"({"srcDir":")" + srcDir + R"(","portalDir":")" + portalDir + R"("})";
}

inline std::string deleteRequest(const std::vector<std::string>& dirs) {
    std::string list;
    for (const auto& dir : dirs) {
        list += (list.empty() ? "\"" : ",\"") + dir + "\"";
    }
    return R"({"portalDirs":[)" + list + "]}";
}

}  // namespace helion::test
