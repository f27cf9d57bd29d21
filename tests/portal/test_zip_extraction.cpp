// Extraction of real archives written here with minizip: entry kinds, odd names, broken archives.
#include <gtest/gtest.h>

#include <boost/filesystem.hpp>

#include "portal/PackageKit.h"
#include "support/ServiceAccess.h"
#include "support/TestSupport.h"
#ifdef HELION_TEST_TOOLS
#include "tools/lib/PackageWriter.h"
#endif

namespace {

namespace fs = boost::filesystem;
using helion::test::readFile;
using helion::test::ZipEntry;

// Each case runs on the archive's path and on its bytes in memory, the way updatePortal reads it.
class ZipExtraction : public ::testing::TestWithParam<bool> {
protected:
    bool extract(const std::vector<ZipEntry>& entries) {
        helion::test::writeZip(zipPath_, entries);
        return extractFile(zipPath_);
    }
    bool extractFile(const std::string& path) {
        using Access = corvid::SdpPromoteServiceImplAccess;
        return GetParam() ? Access::unZipFromMemory(service_, path, readFile(path), dest_.string())
                          : Access::unZipToFile(service_, path, dest_.string());
    }
    std::string destFile(const std::string& name) const {
        return readFile((dest_ / name).string());
    }

    helion::test::LogCapture log_;
    helion::test::TempDir dir_;
    corvid::SdpPromoteServiceImpl service_;
    std::string zipPath_ = (dir_.path() / "package.zip").string();
    fs::path dest_ = dir_.path() / "dest";
};

TEST_P(ZipExtraction, FilesOfEveryKindLandBelowTheDestination) {
    std::string large(5000, '\0');  // more than one copy buffer
    for (std::size_t i = 0; i < large.size(); ++i) {
        large[i] = static_cast<char>(i * 7);
    }
    const std::string longName = std::string(120, 'd') + "/" + std::string(140, 'e') + "/f.txt";
    dir_.write("dest/f.txt", "old and longer");
    ASSERT_TRUE(extract({{"a/", ""},
                         {"a/b.txt", "deflated"},
                         {"stored.bin", large, false},
                         {"c\\", ""},
                         {"f.txt", "new"},
                         {longName, "long"},
                         {"../outside.txt", "up"}}));
    EXPECT_EQ(destFile("a/b.txt"), "deflated");
    EXPECT_EQ(destFile("stored.bin"), large);
    EXPECT_EQ(destFile("f.txt"), "new");
    EXPECT_EQ(destFile(longName), "long");
    EXPECT_FALSE(fs::exists(dest_ / "c\\"));
    EXPECT_EQ(readFile((dir_.path() / "outside.txt").string()), "up");  // joined as it stands
    EXPECT_TRUE(log_.contains("Number of files in zip:7"));
    EXPECT_TRUE(log_.contains("Extracting file:a/b.txt"));

    fs::remove_all(dest_);  // directory entries alone create nothing
    EXPECT_TRUE(extract({{"a/", ""}, {"b\\", ""}}));
    EXPECT_FALSE(fs::exists(dest_));
}

TEST_P(ZipExtraction, UnreadableEntriesAreSkippedNotFatal) {
    dir_.write("dest/blocker", "plain file");
    // A reserved block type breaks the stream at its first byte.
    EXPECT_TRUE(extract({{"secret.txt", "hidden text", true, "password"},
                         {"broken.txt", "\x07", true, nullptr, 100},
                         {"blocker/inside.txt", "x"},
                         {"after.txt", "still here"}}));
    EXPECT_EQ(destFile("broken.txt"), "");
    // Without the password the data is inflated as it stands: what that yields depends on the
    // archive's random encryption header, but never the plain text.
    EXPECT_TRUE(fs::exists(dest_ / "secret.txt"));
    EXPECT_NE(destFile("secret.txt"), "hidden text");
    EXPECT_TRUE(
        log_.contains("Failed to create dir:" + (dest_ / "blocker").string() + "; Reason: "));
    EXPECT_EQ(destFile("after.txt"), "still here");
}

TEST_P(ZipExtraction, BrokenArchivesFail) {
    // An archive without entries: minizip only opens one whose end record is not at offset 0,
    // so the second copy carries a stub in front, as self-extracting archives do.
    EXPECT_FALSE(extract({}));
    const std::string stubbed = dir_.write("stub.zip", "stub" + readFile(zipPath_));
    EXPECT_FALSE(extractFile(stubbed));
    EXPECT_TRUE(log_.contains("Failed to go to first file in zip file:" + stubbed));

    EXPECT_FALSE(extractFile(dir_.write("not.zip", "this is not an archive")));
    EXPECT_TRUE(log_.contains("Failed to open zip file:" + (dir_.path() / "not.zip").string()));

    helion::test::writeZip(zipPath_, {{"a.txt", std::string(3000, 'a')}});
    const std::string whole = readFile(zipPath_);
    EXPECT_FALSE(extractFile(dir_.write("cut.zip", whole.substr(0, whole.size() - 30))));
    EXPECT_FALSE(fs::exists(dest_));
}

#ifdef HELION_TEST_TOOLS
// Packages from the tool extract here, on both sides of its switch to zip64 sizes. A lowered
// threshold reaches the switch with a few bytes instead of a 4 GiB entry; the real one is where
// the 32-bit size fields run out.
TEST_P(ZipExtraction, ToolPackagesExtractOnBothSidesOfTheZip64Switch) {
    static_assert(helion::tools::kZip64EntryBytes == 0xffffffffULL);
    constexpr std::size_t kSwitch = 1000;
    for (const std::size_t size : {kSwitch - 1, kSwitch}) {
        dir_.write("tree/f.txt", std::string(size, 'z'));
        helion::tools::packPortal((dir_.path() / "tree").string(), zipPath_, kSwitch);
        // The local header's extra field length: the zip64 field's 20 bytes, or nothing.
        EXPECT_EQ(readFile(zipPath_).substr(28, 2),
                  std::string({size < kSwitch ? '\0' : '\x14', '\0'}));
        ASSERT_TRUE(extractFile(zipPath_)) << size;
        EXPECT_EQ(destFile("f.txt"), std::string(size, 'z'));
    }
}
#endif

INSTANTIATE_TEST_SUITE_P(FileAndMemory, ZipExtraction, ::testing::Bool());

}  // namespace
