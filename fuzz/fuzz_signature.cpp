// Arbitrary signature bytes over a fixed package signed with the development key. PKCS#1 v1.5
// signatures are deterministic and below the modulus, so exactly one 256-byte prefix verifies:
// the check must accept that one (whatever follows it) and refuse everything else, short
// signatures included, without reading past the data it was given.
#include <stdlib.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>

#include "FuzzSupport.h"
#include "SdpPromote/SdpPromoteServiceImpl.h"
#include "support/ServiceAccess.h"

namespace {

constexpr std::size_t kSignatureLength = 256;

struct Fixture {
    Fixture() {
        // Inside the sandbox only the scratch tmpfs is writable; elsewhere a private temp dir.
        std::string base =
            ::access(helion::fuzz::kScratch, W_OK) == 0 ? helion::fuzz::kScratch : "/tmp";
        if (const char* tmp = std::getenv("TMPDIR"); tmp != nullptr && base == "/tmp") {
            base = tmp;
        }
        std::string pattern = base + "/helion-fuzz-signature-XXXXXX";
        if (::mkdtemp(pattern.data()) == nullptr) {
            std::perror("fuzz_signature: mkdtemp");
            std::abort();
        }
        dir = pattern;
        package = dir + "/package.zip";
        signature = dir + "/package.sig";
        const std::string bytes = helion::fuzz::dataFile("package.zip");
        valid = helion::fuzz::dataFile("package.sig");
        if (valid.size() != kSignatureLength ||
            !helion::fuzz::writeBytes(package, bytes.data(), bytes.size())) {
            std::fprintf(stderr, "fuzz_signature: cannot set up %s\n", dir.c_str());
            std::abort();
        }
        helion::fuzz::installNullLogger();
    }
    ~Fixture() {
        boost::system::error_code ignored;
        boost::filesystem::remove_all(dir, ignored);
    }

    std::string dir, package, signature, valid;
    corvid::SdpPromoteServiceImpl service;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static Fixture fixture;
    if (!helion::fuzz::writeBytes(fixture.signature, data, size)) {
        std::abort();
    }
    const bool verified = corvid::SdpPromoteServiceImplAccess::verifySignature(
        fixture.service, fixture.package, fixture.signature);
    const bool expected =
        size >= kSignatureLength && std::memcmp(data, fixture.valid.data(), kSignatureLength) == 0;
    if (verified != expected) {
        __builtin_trap();
    }
    return 0;
}
