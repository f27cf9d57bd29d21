// A source directory removed while copyPortalDir walks it. Any outcome the operation allows is
// fine (success, "source file not exist", or the iterator's error thrown to the caller); what
// must hold is no crash, nothing in the target that was not in the source, and a service that
// goes on working.
#include <gtest/gtest.h>

#include <atomic>
#include <boost/filesystem.hpp>
#include <thread>

#include "faults/FaultSupport.h"
#include "portal/PortalFixture.h"

namespace {

using helion::test::parseEnvelope;
using helion::test::readFile;
namespace fs = boost::filesystem;

class CopyRace : public helion::test::PortalRootTest {
protected:
    // Content of every file says where it came from, so the target can be checked against it.
    void buildSource(const fs::path& src) {
        for (int dir = 0; dir < 12; ++dir) {
            for (int file = 0; file < 12; ++file) {
                const std::string relative =
                    "d" + std::to_string(dir) + "/f" + std::to_string(file) + ".css";
                fs::create_directories((src / relative).parent_path());
                std::ofstream((src / relative).string()) << relative;
            }
        }
    }

    // Returns how many files arrived.
    int expectOnlySourceFilesIn(const fs::path& target) {
        int files = 0;
        if (!fs::exists(target)) {
            return files;
        }
        for (fs::recursive_directory_iterator it(target), end; it != end; ++it) {
            if (fs::is_regular_file(it->status())) {
                const std::string relative = it->path().string().substr(target.string().size() + 1);
                EXPECT_EQ(readFile(it->path().string()), relative);
                ++files;
            }
        }
        return files;
    }
};

TEST_F(CopyRace, SourceRemovedWhileCopyingEndsInAnAllowedOutcome) {
    int succeeded = 0, missing = 0, thrown = 0, partial = 0;
    for (int round = 0; round < 12; ++round) {
        SCOPED_TRACE(round);
        const fs::path src = scratch_.path() / ("src" + std::to_string(round));
        buildSource(src);
        const std::string portalDir = "race" + std::to_string(round);

        std::atomic<bool> started{false};
        std::thread remover([&] {
            while (!started.load()) {
                std::this_thread::yield();
            }
            // Later rounds give the copy a head start of growing length.
            for (int spin = 0; spin < round * round * 20; ++spin) {
                std::this_thread::yield();
            }
            boost::system::error_code ignored;
            fs::remove_all(src, ignored);
        });
        std::string result;
        try {
            started = true;
            service_.copyPortalDir(result, helion::test::copyRequest(src.string(), portalDir));
            const auto envelope = parseEnvelope(result);
            EXPECT_TRUE(envelope.code == 0 || envelope.code == 7) << result;
            (envelope.code == 0 ? succeeded : missing)++;
        } catch (const fs::filesystem_error&) {
            ++thrown;
        }
        remover.join();
        partial += expectOnlySourceFilesIn(root_ / portalDir) < 144 ? 1 : 0;
    }
    std::cout << "outcomes: " << succeeded << " successful, " << missing << " source missing, "
              << thrown << " thrown; " << partial << " rounds copied part of the source"
              << std::endl;

    const fs::path src = scratch_.path() / "calm";
    buildSource(src);
    service_.copyPortalDir(result_, helion::test::copyRequest(src.string(), "calm"));
    EXPECT_EQ(parseEnvelope(result_).code, 0);
    EXPECT_EQ(readFile((root_ / "calm/d3/f4.css").string()), "d3/f4.css");
    EXPECT_FALSE(fs::exists(src));
}

}  // namespace
