// Replays every seed and every kept finding of the fuzz targets through the targets' own entry
// functions, built here without libFuzzer, so that a fixed crash stays fixed in the ordinary
// suite. A failing input aborts the program; the last "replaying" line names it.
#include <gtest/gtest.h>

#include <algorithm>
#include <boost/filesystem.hpp>
#include <cstdint>
#include <iostream>
#include <string>
#include <utility>
#include <vector>

#include "support/TestSupport.h"

extern "C" {
int replay_unzip(const uint8_t*, size_t);
int replay_processor(const uint8_t*, size_t);
int replay_json_checker(const uint8_t*, size_t);
int replay_http_router(const uint8_t*, size_t);
int replay_from_json(const uint8_t*, size_t);
int replay_signature(const uint8_t*, size_t);
}

namespace {

namespace fs = boost::filesystem;

TEST(FuzzReplay, SeedsAndKeptFindings) {
    using Entry = int (*)(const uint8_t*, size_t);
#ifdef HELION_REPLAY_SANDBOXED
    const std::pair<const char*, Entry> targets[] = {{"unzip", replay_unzip},
                                                     {"processor", replay_processor}};
#else
    const std::pair<const char*, Entry> targets[] = {{"json_checker", replay_json_checker},
                                                     {"http_router", replay_http_router},
                                                     {"from_json", replay_from_json},
                                                     {"signature", replay_signature}};
#endif
    for (const auto& [name, entry] : targets) {
        // Seeds and regressions of one target, sorted so that runs are comparable.
        std::vector<fs::path> files;
        for (const char* kind : {"corpus", "regressions"}) {
            const fs::path dir = fs::path(HELION_SOURCE_DIR) / "fuzz" / kind / name;
            for (const auto& item : fs::is_directory(dir) ? fs::recursive_directory_iterator(dir)
                                                          : fs::recursive_directory_iterator()) {
                if (fs::is_regular_file(item.status())) {
                    files.push_back(item.path());
                }
            }
        }
        std::sort(files.begin(), files.end());
        EXPECT_FALSE(files.empty()) << "no seeds for " << name;
        for (const auto& file : files) {
            std::cerr << "replaying " << file.string() << std::endl;
            const std::string bytes = helion::test::readFile(file.string());
            EXPECT_EQ(entry(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()), 0)
                << file.string();
        }
    }
}

}  // namespace
