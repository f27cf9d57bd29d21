// Arbitrary bytes extracted as a portal package. Entry names are joined as they stand, so this
// only runs inside the sandbox (a tmpfs scratch directory, everything else read-only). The
// extraction must end, return its verdict and leave no handle open; what it writes is wiped
// before the next input.
#include <dirent.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "FuzzSupport.h"
#include "SdpPromote/SdpPromoteServiceImpl.h"
#include "support/ServiceAccess.h"

namespace {

int openDescriptors() {
    int count = 0;
    if (DIR* dir = ::opendir("/proc/self/fd")) {
        while (::readdir(dir) != nullptr) {
            ++count;
        }
        ::closedir(dir);
    }
    return count;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    helion::fuzz::requireSandbox("fuzz_unzip");
    helion::fuzz::installNullLogger();
    static corvid::SdpPromoteServiceImpl service;

    helion::fuzz::resetScratch();
    const std::string zip = std::string(helion::fuzz::kScratch) + "/input.zip";
    const std::string dest = std::string(helion::fuzz::kScratch) + "/Resources/app/x";
    boost::system::error_code ec;
    boost::filesystem::create_directories(dest, ec);
    if (ec || !helion::fuzz::writeBytes(zip, data, size)) {
        std::abort();
    }

    const int before = openDescriptors();
    // Alternately from the file and from the bytes in memory, the way updatePortal extracts.
    static bool fromMemory = false;
    fromMemory = !fromMemory;
    if (fromMemory) {
        const std::string bytes(reinterpret_cast<const char*>(data), size);
        corvid::SdpPromoteServiceImplAccess::unZipFromMemory(service, zip, bytes, dest);
    } else {
        corvid::SdpPromoteServiceImplAccess::unZipToFile(service, zip, dest);
    }
    // The archive and every output file are closed on all paths.
    if (openDescriptors() != before) {
        __builtin_trap();
    }
    helion::fuzz::resetScratch();
    return 0;
}
