#pragma once
// Helpers shared by the fuzz targets and their replay in the unit tests.

#include <spdlog/sinks/null_sink.h>
#include <sys/statfs.h>
#include <sys/statvfs.h>

#include <boost/filesystem.hpp>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>

#include "corvid/Logger.h"

#ifndef TMPFS_MAGIC
#define TMPFS_MAGIC 0x01021994
#endif

namespace helion::fuzz {

/// The scratch tmpfs the sandbox mounts; the fuzz build's Resources dir lies below it.
inline const char* const kScratch = HELION_FUZZ_SCRATCH;

/// Archive entry names and portal names are joined as they stand, so targets that write files
/// abort unless the scratch directory is a tmpfs and the root file system is read-only: the
/// private namespace that fuzz/sandbox.sh sets up.
inline void requireSandbox(const char* target) {
    static const bool checked = [target] {
        struct statfs scratch {};
        struct statvfs root {};
        const bool scratchIsTmpfs =
            ::statfs(kScratch, &scratch) == 0 && scratch.f_type == TMPFS_MAGIC;
        const bool rootReadOnly = ::statvfs("/", &root) == 0 && (root.f_flag & ST_RDONLY) != 0;
        if (!scratchIsTmpfs || !rootReadOnly) {
            std::fprintf(stderr,
                         "%s: refusing to run outside the sandbox (%s is %sa tmpfs, / is %s); "
                         "use scripts/fuzz.sh or fuzz/sandbox.sh\n",
                         target, kScratch, scratchIsTmpfs ? "" : "not ",
                         rootReadOnly ? "read-only" : "writable");
            std::abort();
        }
        return true;
    }();
    (void)checked;
}

/// Empties the scratch directory but for what the fuzzer itself keeps there, and re-creates the
/// portal root.
inline void resetScratch() {
    namespace fs = boost::filesystem;
    boost::system::error_code ec;
    for (fs::directory_iterator entry(kScratch, ec), end; !ec && entry != end;
         entry.increment(ec)) {
        const std::string name = entry->path().filename().string();
        if (name != "corpus" && name != "out") {
            boost::system::error_code ignored;
            fs::remove_all(entry->path(), ignored);
        }
    }
    fs::create_directories(std::string(kScratch) + "/Resources/app", ec);
    // A portal name such as "../../.." reaches the fuzzer's own directories too.
    fs::create_directories(std::string(kScratch) + "/corpus", ec);
    fs::create_directories(std::string(kScratch) + "/out", ec);
}

/// Writes bytes to path, replacing it; false when it cannot.
inline bool writeBytes(const std::string& path, const void* data, std::size_t size) {
    std::FILE* file = std::fopen(path.c_str(), "wb");
    if (file == nullptr) {
        return false;
    }
    const bool written = size == 0 || std::fwrite(data, 1, size, file) == size;
    return std::fclose(file) == 0 && written;
}

/// A file of fuzz/data (the fixed signed package); aborts when it is missing, since every
/// verdict would then be wrong.
inline std::string dataFile(const char* name) {
    const std::string path = std::string(HELION_FUZZ_DATA_DIR) + "/" + name;
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        std::fprintf(stderr, "fuzz: cannot read %s\n", path.c_str());
        std::abort();
    }
    std::ostringstream content;
    content << in.rdbuf();
    return content.str();
}

/// Routes the shared logger to a sink that drops everything, at trace, so that every log
/// statement still formats its arguments.
inline void installNullLogger() {
    static const bool installed = [] {
        auto sink = std::make_shared<spdlog::sinks::null_sink_mt>();
        corvid::Logger::GetInstance().init(std::make_shared<spdlog::logger>("fuzz", sink),
                                           spdlog::level::trace);
        return true;
    }();
    (void)installed;
}

}  // namespace helion::fuzz
