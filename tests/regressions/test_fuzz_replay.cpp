// Replays every seed and every kept finding of the fuzz targets through the targets' own entry
// functions, built here without libFuzzer, so that a fixed crash stays fixed in the ordinary
// suite. A failing input aborts the program; the last "replaying" line names it.
#include <gtest/gtest.h>

#include <algorithm>
#include <boost/filesystem.hpp>
#include <cstdint>
#include <iostream>
#include <string>
#include <vector>

#include "support/TestSupport.h"

using Entry = int (*)(const uint8_t*, size_t);

#ifdef HELION_REPLAY_SANDBOXED
extern "C" int replay_unzip(const uint8_t*, size_t);
extern "C" int replay_processor(const uint8_t*, size_t);
#else
extern "C" int replay_json_checker(const uint8_t*, size_t);
extern "C" int replay_http_router(const uint8_t*, size_t);
extern "C" int replay_from_json(const uint8_t*, size_t);
extern "C" int replay_signature(const uint8_t*, size_t);
#endif

namespace {

namespace fs = boost::filesystem;

// Seeds and regressions of one target, sorted so that runs are comparable.
std::vector<fs::path> inputsOf(const std::string& name) {
    std::vector<fs::path> files;
    for (const char* kind : {"corpus", "regressions"}) {
        const fs::path dir = fs::path(HELION_SOURCE_DIR) / "fuzz" / kind / name;
        if (!fs::is_directory(dir)) {
            continue;
        }
        for (const auto& entry : fs::recursive_directory_iterator(dir)) {
            if (fs::is_regular_file(entry.status())) {
                files.push_back(entry.path());
            }
        }
    }
    std::sort(files.begin(), files.end());
    return files;
}

void replay(const std::string& name, Entry entry) {
    const auto files = inputsOf(name);
    ASSERT_FALSE(files.empty()) << "no seeds for " << name;
    for (const auto& file : files) {
        std::cerr << "replaying " << file.string() << std::endl;
        const std::string bytes = helion::test::readFile(file.string());
        EXPECT_EQ(entry(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()), 0)
            << file.string();
    }
}

#ifdef HELION_REPLAY_SANDBOXED
TEST(FuzzReplaySandboxed, Unzip) {
    replay("unzip", replay_unzip);
}
TEST(FuzzReplaySandboxed, Processor) {
    replay("processor", replay_processor);
}
#else
TEST(FuzzReplay, JsonChecker) {
    replay("json_checker", replay_json_checker);
}
TEST(FuzzReplay, HttpRouter) {
    replay("http_router", replay_http_router);
}
TEST(FuzzReplay, FromJson) {
    replay("from_json", replay_from_json);
}
TEST(FuzzReplay, Signature) {
    replay("signature", replay_signature);
}
#endif

}  // namespace
