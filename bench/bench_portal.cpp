// The two halves of a portal update, per MiB: the signature check (whole-file read, SHA-256,
// key parse, RSA verify) and the extraction.
#include <benchmark/benchmark.h>

#include <boost/filesystem.hpp>
#include <string>

#include "BenchFiles.h"
#include "SdpPromote/SdpPromoteServiceImpl.h"
#include "support/ServiceAccess.h"
#include "tools/lib/FileIo.h"
#include "tools/lib/PackageWriter.h"

namespace {

using corvid::SdpPromoteServiceImplAccess;
using helion::bench::ScratchDir;

constexpr std::uint64_t kMiB = 1024 * 1024;

void BM_VerifySignature(benchmark::State& state) {
    const std::uint64_t size = static_cast<std::uint64_t>(state.range(0)) * kMiB;
    ScratchDir scratch;
    const std::string zip = scratch.file("package.zip");
    const std::string sig = scratch.file("package.zip.sig");
    helion::bench::writeRandomFile(zip, size, 42);
    helion::bench::signWithDevKey(zip, sig);

    corvid::SdpPromoteServiceImpl service;
    for (auto _ : state) {
        if (!SdpPromoteServiceImplAccess::verifySignature(service, zip, sig)) {
            state.SkipWithError("the package did not verify");
            break;
        }
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * size));
}
BENCHMARK(BM_VerifySignature)->Arg(1)->Arg(16)->Unit(benchmark::kMillisecond);

// Extraction of a portal-like package of range(0) MiB into a fresh directory per iteration, from
// the file (range(2) 0) or from its bytes in memory (1, as updatePortal does); bytes are the
// uncompressed bytes written.
void BM_UnZipToFile(benchmark::State& state) {
    const std::uint64_t size = static_cast<std::uint64_t>(state.range(0)) * kMiB;
    const unsigned files = static_cast<unsigned>(state.range(1));
    ScratchDir scratch;
    const std::string tree = scratch.file("tree");
    const std::uint64_t bytes = helion::bench::writePortalTree(tree, size, files, 7);
    const std::string zip = scratch.file("package.zip");
    helion::tools::packPortal(tree, zip);

    const bool fromMemory = state.range(2) != 0;
    const std::string data = fromMemory ? helion::tools::readWholeFile(zip) : std::string();

    corvid::SdpPromoteServiceImpl service;
    const std::string dest = scratch.file("out");
    for (auto _ : state) {
        state.PauseTiming();
        boost::system::error_code ignored;
        boost::filesystem::remove_all(dest, ignored);
        boost::filesystem::create_directories(dest);
        state.ResumeTiming();
        const bool extracted =
            fromMemory ? SdpPromoteServiceImplAccess::unZipFromMemory(service, zip, data, dest)
                       : SdpPromoteServiceImplAccess::unZipToFile(service, zip, dest);
        if (!extracted) {
            state.SkipWithError("the package did not extract");
            break;
        }
    }
    state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * bytes));
    state.counters["files"] = files;
}
BENCHMARK(BM_UnZipToFile)->Args({16, 1000, 0})->Args({16, 1000, 1})->Unit(benchmark::kMillisecond);

}  // namespace
