#pragma once
// Reaches the service's private helpers from tests, benchmarks and fuzz targets: one definition,
// since a program that links several of them may hold only one.

#include "SdpPromote/SdpPromoteServiceImpl.h"

namespace corvid {

struct SdpPromoteServiceImplAccess {
    static bool verifySignature(SdpPromoteServiceImpl& s, const std::string& zip,
                                const std::string& sig) {
        return s.verifySignature(zip, sig);
    }
    static bool unZipToFile(SdpPromoteServiceImpl& s, const std::string& zip,
                            const std::string& dest) {
        return s.unZipToFile(zip, dest);
    }
    static bool unZipFromMemory(SdpPromoteServiceImpl& s, const std::string& zip,
                                const std::string& data, const std::string& dest) {
        return s.unZipToFile(zip, data, dest);
    }
    static bool readFileContent(SdpPromoteServiceImpl& s, const std::string& path,
                                std::string& out) {
        return s.readFileContent(path, out, true);
    }
    static bool stringInList(SdpPromoteServiceImpl& s, const std::string& name,
                             const std::vector<std::string>& list) {
        return s.stringInList(name, list);
    }
};

}  // namespace corvid
