#pragma once
// The service's private package helpers, for the fuzz targets. One definition for every target,
// since the replay tests link several targets into one program.

#include <string>

#include "SdpPromote/SdpPromoteServiceImpl.h"

namespace corvid {

struct SdpPromoteServiceImplAccess {
    static bool verifySignature(SdpPromoteServiceImpl& service, const std::string& zip,
                                const std::string& sig) {
        return service.verifySignature(zip, sig);
    }
    static bool unZipToFile(SdpPromoteServiceImpl& service, const std::string& zip,
                            const std::string& dest) {
        return service.unZipToFile(zip, dest);
    }
};

}  // namespace corvid
