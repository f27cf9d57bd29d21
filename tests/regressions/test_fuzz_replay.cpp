// Replays every seed and kept finding of the fuzz targets through their own entry functions,
// built here without libFuzzer, so a fixed crash stays fixed. A failing input aborts the
// program; the last "replaying" line names it.
#include <gtest/gtest.h>

#include <algorithm>
#include <boost/filesystem.hpp>
#include <cstdint>
#include <iostream>
#include <string>
#include <utility>
#include <vector>

#include "support/TestSupport.h"

using Entry = int(const uint8_t*, size_t);
#ifdef HELION_REPLAY_SANDBOXED
extern "C" Entry replay_unzip, replay_processor;
#else
extern "C" Entry replay_json_checker, replay_http_router, replay_from_json, replay_signature;
#endif

namespace {

namespace fs = boost::filesystem;

TEST(FuzzReplay, SeedsAndKeptFindings) {
#ifdef HELION_REPLAY_SANDBOXED
    const std::pair<const char*, Entry*> targets[] = {{"unzip", replay_unzip},
                                                      {"processor", replay_processor}};
#else
    const std::pair<const char*, Entry*> targets[] = {{"json_checker", replay_json_checker},
                                                      {"http_router", replay_http_router},
                                                      {"from_json", replay_from_json},
                                                      {"signature", replay_signature}};
#endif
    for (const auto& [name, entry] : targets) {
        std::vector<fs::path> files;  // sorted, so that runs are comparable
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
