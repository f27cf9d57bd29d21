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
    // 144 files whose content says where each came from, so the target can be checked.
    void buildSource(const fs::path& src) {
        for (int i = 0; i < 144; ++i) {
            const std::string relative =
                "d" + std::to_string(i / 12) + "/f" + std::to_string(i % 12) + ".css";
            scratch_.write(fs::relative(src / relative, scratch_.path()).string(), relative);
        }
    }

    // Every file that arrived is a whole source file; returns how many did.
    int filesIn(const fs::path& target) {
        int files = 0;
        if (!fs::exists(target)) {
            return files;
        }
        for (fs::recursive_directory_iterator it(target), end; it != end; ++it) {
            if (fs::is_regular_file(it->status())) {
                EXPECT_EQ(readFile(it->path().string()), fs::relative(it->path(), target).string());
                ++files;
            }
        }
        return files;
    }
};

TEST_F(CopyRace, SourceRemovedWhileCopyingEndsInAnAllowedOutcome) {
    for (int round = 0; round < 12; ++round) {
        SCOPED_TRACE(round);
        const fs::path src = scratch_.path() / ("src" + std::to_string(round));
        buildSource(src);
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
        try {
            started = true;
            service_.copyPortalDir(result_, helion::test::copyRequest(src.string(), "race"));
            const int code = parseEnvelope(result_).code;
            EXPECT_TRUE(code == 0 || code == 7) << result_;
        } catch (const fs::filesystem_error&) {
            // The walk's own error, passed to the caller: allowed.
        }
        remover.join();
        EXPECT_LE(filesIn(root_ / "race"), 144);
    }

    const fs::path src = scratch_.path() / "calm";
    buildSource(src);
    service_.copyPortalDir(result_, helion::test::copyRequest(src.string(), "calm"));
    EXPECT_EQ(parseEnvelope(result_).code, 0);
    EXPECT_EQ(filesIn(root_ / "calm"), 144);
    EXPECT_FALSE(fs::exists(src));
}

}  // namespace
