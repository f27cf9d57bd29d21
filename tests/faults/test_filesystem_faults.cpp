// The portal root on a file system that fills up, is read-only, or is not the one the caller's
// files are on: each such test mounts its own file system over the test portal root, inside a
// mount namespace of the test's own (it skips where none can be made). And a source directory
// removed while copyPortalDir walks it.
#include <gtest/gtest.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <boost/filesystem.hpp>
#include <climits>
#include <cstring>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "portal/PortalFixture.h"
#include "support/FaultSupport.h"

namespace {

using helion::test::readFile;
namespace fs = boost::filesystem;

// The fsync calls of this program while a copy's source is watched, each with whether the source
// still existed at that moment.
std::vector<std::pair<std::string, bool>> syncs;
std::string watchedSource;

}  // namespace

// Stands in for the C library's fsync in this program, which links the module's code.
extern "C" int fsync(int fd) {
    if (!watchedSource.empty()) {
        char path[PATH_MAX] = {};
        const ssize_t got =
            readlink(("/proc/self/fd/" + std::to_string(fd)).c_str(), path, sizeof path - 1);
        syncs.emplace_back(std::string(path, got > 0 ? static_cast<std::size_t>(got) : 0),
                           access(watchedSource.c_str(), F_OK) == 0);
    }
    return static_cast<int>(syscall(SYS_fsync, fd));
}

namespace {

std::string incompressible(std::size_t size) {
    std::mt19937 random(7);
    std::string bytes(size, '\0');
    for (char& c : bytes) {
        c = static_cast<char>(random());
    }
    return bytes;
}

class FilesystemFaults : public helion::test::PortalRootTest {
protected:
    void SetUp() override {
        // Mounts made from here on are seen by this process alone.
        static const bool isolated =
            ::unshare(CLONE_NEWNS) == 0 &&
            ::mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0;
        if (!isolated) {
            GTEST_SKIP() << "needs a mount namespace of its own: " << std::strerror(errno);
        }
        PortalRootTest::SetUp();
    }

    void TearDown() override {
        if (mounted_) {
            ::umount2(root_.c_str(), MNT_DETACH);
        }
        PortalRootTest::TearDown();
    }

    void mountTmpfs(const std::string& options) {
        ASSERT_EQ(::mount("tmpfs", root_.c_str(), "tmpfs", 0, options.c_str()), 0)
            << std::strerror(errno);
        mounted_ = true;
    }

    // The portal root as it is, bound onto itself read-only.
    void makeReadOnly() {
        ASSERT_EQ(::mount(root_.c_str(), root_.c_str(), nullptr, MS_BIND, nullptr), 0)
            << std::strerror(errno);
        ASSERT_EQ(
            ::mount(nullptr, root_.c_str(), nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr), 0)
            << std::strerror(errno);
    }

    helion::test::SignedPackage smallPackage() {
        return helion::test::signedPackage(scratch_, "small.zip",
                                           {{"index.html", "<html/>"}, {"a.css", "a"}});
    }

    bool mounted_ = false;
};

using Service = corvid::SdpPromoteServiceImpl;

TEST_F(FilesystemFaults, AFullDiskTruncatesFilesSilentlyAndFreedSpaceIsUsableAgain) {
    mountTmpfs("size=256k");
    const auto big = helion::test::signedPackage(
        scratch_, "big.zip", {{"big.bin", incompressible(1 << 20)}, {"after.css", "after"}});
    // Write errors are not reported: the update counts as done with what fitted.
    EXPECT_EQ(call(&Service::updatePortal, updateRequest(big, "web")).code, 0);
    EXPECT_LT(fs::file_size(root_ / "web/big.bin"), 1u << 20);
    EXPECT_TRUE(fs::exists(root_ / "web/after.css"));

    EXPECT_EQ(call(&Service::delPortalDir, helion::test::deleteRequest({"web"})).code, 0);
    EXPECT_EQ(call(&Service::updatePortal, updateRequest(smallPackage(), "web")).code, 0);
    EXPECT_EQ(portalFile("web/index.html"), "<html/>");
    EXPECT_EQ(portalFile("web/a.css"), "a");
}

// The caller's files and the portal on different file systems, as with a tmpfs /tmp.
TEST_F(FilesystemFaults, CopiesCrossFileSystemsWholeAndAFullTargetLosesNothing) {
    mountTmpfs("size=1m");
    const std::string src = scratch_.str() + "/src";
    const std::string image = incompressible(300 << 10);
    scratch_.write("src/img/big.png", image);
    scratch_.write("src/a.css", "a");
    plant("web/a.css", "old");
    EXPECT_EQ(call(&Service::copyPortalDir, helion::test::copyRequest(src, "web")).code, 0);
    EXPECT_EQ(portalFile("web/img/big.png"), image);
    EXPECT_EQ(portalFile("web/a.css"), "a");
    EXPECT_FALSE(fs::exists(src));

    // Too large for what is left: no partial file in the portal, the old one stays, and the
    // source keeps the only whole copy.
    const std::string huge = incompressible(2 << 20);
    scratch_.write("src/a.css", huge);
    EXPECT_EQ(call(&Service::copyPortalDir, helion::test::copyRequest(src, "web")).code, 0);
    EXPECT_TRUE(log_.contains("copy file error; Reason: No space left on device"));
    EXPECT_EQ(portalFile("web/a.css"), "a");
    EXPECT_EQ(std::distance(fs::directory_iterator(root_ / "web"), fs::directory_iterator()), 2);
    EXPECT_EQ(readFile(src + "/a.css"), huge);
    EXPECT_TRUE(log_.contains("No space left on device: 2097152 bytes needed"));  // before writing

    // A sparse file claiming more than one copy may write is refused before a byte is written.
    fs::resize_file(src + "/a.css", Service::kMaxCopyBytes + 1);
    EXPECT_EQ(call(&Service::copyPortalDir, helion::test::copyRequest(src, "web")).code, 0);
    EXPECT_TRUE(log_.contains("copy file error; Reason: larger than " +
                              std::to_string(Service::kMaxCopyBytes) + " bytes this copy may"));
    EXPECT_EQ(portalFile("web/a.css"), "a");
}

// A bind mount shows the portal directory under another path: still the same directory.
TEST_F(FilesystemFaults, ACopyOntoItselfIsRefusedUnderAnyPath) {
    plant("p/a.css", "a");
    const fs::path alias = scratch_.path() / "alias";
    fs::create_directories(alias);
    ASSERT_EQ(::mount((root_ / "p").c_str(), alias.c_str(), nullptr, MS_BIND, nullptr), 0);
    EXPECT_EQ(call(&Service::copyPortalDir, helion::test::copyRequest(alias.string(), "p")).code,
              4);
    EXPECT_TRUE(log_.contains("refused; Reason: source and target are the same directory"));
    ::umount2(alias.c_str(), MNT_DETACH);
    EXPECT_EQ(portalFile("p/a.css"), "a");
}

TEST_F(FilesystemFaults, CopiedFilesAndTheirDirectoriesAreSyncedBeforeTheSourceGoes) {
    const std::string src = scratch_.str() + "/src";
    scratch_.write("src/a.css", "a");
    scratch_.write("src/sub/b.css", "b");
    syncs.clear();
    watchedSource = src;
    EXPECT_EQ(call(&Service::copyPortalDir, helion::test::copyRequest(src, "web")).code, 0);
    watchedSource.clear();
    EXPECT_FALSE(fs::exists(src));
    std::vector<std::string> synced;
    for (const auto& [path, sourceThere] : syncs) {
        EXPECT_TRUE(sourceThere) << path;
        const fs::path relative = fs::path(path).lexically_relative(fs::canonical(root_));
        const bool temporary = relative.filename().string().rfind(".helion-copy-", 0) == 0;
        synced.push_back(temporary ? (relative.parent_path() / "file").string()
                                   : relative.string());
    }
    std::sort(synced.begin(), synced.end());
    EXPECT_EQ(synced, (std::vector<std::string>{"web", "web/file", "web/sub", "web/sub/file"}));
}

TEST_F(FilesystemFaults, AReadOnlyPortalRootChangesNothingAndOnlyCreationFailsTheCall) {
    mountTmpfs("size=1m");
    plant("web/old.css", "old");
    makeReadOnly();

    // An existing target cannot be removed or filled; both only log, and the call succeeds.
    EXPECT_EQ(call(&Service::updatePortal, updateRequest(smallPackage(), "web")).code, 0);
    EXPECT_TRUE(log_.contains("del file error; Reason: Read-only file system"));
    EXPECT_TRUE(log_.contains("Failed to create file:"));
    EXPECT_EQ(portalFile("web/old.css"), "old");
    EXPECT_FALSE(fs::exists(root_ / "web/index.html"));

    const auto fresh = call(&Service::updatePortal, updateRequest(smallPackage(), "fresh"));
    EXPECT_EQ(fresh.code, 9);
    EXPECT_EQ(fresh.message, "Read-only file system");

    const std::string src = scratch_.str() + "/src";
    scratch_.write("src/a.css", "a");
    const auto copy = call(&Service::copyPortalDir, helion::test::copyRequest(src, "fresh"));
    EXPECT_EQ(copy.code, 9);
    EXPECT_TRUE(fs::exists(src));
    // Into an existing directory each copy fails alone; the source keeps what did not arrive.
    EXPECT_EQ(call(&Service::copyPortalDir, helion::test::copyRequest(src, "web")).code, 0);
    EXPECT_TRUE(log_.contains("copy file error; Reason: Read-only file system"));
    EXPECT_TRUE(log_.contains("srcDir:" + src + " is kept; Reason: 1 file(s) not copied"));
    EXPECT_EQ(readFile(src + "/a.css"), "a");

    EXPECT_EQ(call(&Service::delPortalDir, helion::test::deleteRequest({"web"})).code, 0);
    EXPECT_EQ(portalFile("web/old.css"), "old");

    ASSERT_EQ(::umount2(root_.c_str(), MNT_DETACH), 0);
    EXPECT_EQ(call(&Service::updatePortal, updateRequest(smallPackage(), "web")).code, 0);
    EXPECT_EQ(portalFile("web/a.css"), "a");
}

// Any outcome the operation allows is fine (success, "source file not exist", or the iterator's
// error thrown to the caller); what must hold is no crash, nothing in the target that was not in
// the source, and a service that goes on working.
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
            const int code =
                call(&Service::copyPortalDir, helion::test::copyRequest(src.string(), "race")).code;
            EXPECT_TRUE(code == 0 || code == 7) << result_;
        } catch (const fs::filesystem_error&) {
            // The walk's own error, passed to the caller: allowed.
        }
        remover.join();
        EXPECT_LE(filesIn(root_ / "race"), 144);
    }

    const fs::path src = scratch_.path() / "calm";
    buildSource(src);
    EXPECT_EQ(call(&Service::copyPortalDir, helion::test::copyRequest(src.string(), "calm")).code,
              0);
    EXPECT_EQ(filesIn(root_ / "calm"), 144);
    EXPECT_FALSE(fs::exists(src));
}

}  // namespace
