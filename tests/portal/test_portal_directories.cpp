// copyPortalDir: which files move in, what happens to the source, and the failure envelopes;
// delPortalDir: best-effort removal below the portal root.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>

#include "portal/PortalFixture.h"
#include "support/FaultSupport.h"
#include "support/ServiceAccess.h"

namespace {

namespace fs = boost::filesystem;
using helion::test::readFile;
using Service = corvid::SdpPromoteServiceImpl;

class PortalCopy : public helion::test::PortalRootTest {
protected:
    std::string source_ = (scratch_.path() / "unpacked").string();
};

TEST_F(PortalCopy, MovesMatchingFilesAndRemovesTheSource) {
    for (const char* name : {"a.PNG", "b.js", "c.css.map", "sub/d.woff2", "sub/e.html"}) {
        scratch_.write("unpacked/" + std::string(name), name);
    }
    fs::create_directories(fs::path(source_) / "empty");
    plant("web/a.PNG", "old");
    plant("web/kept.txt", "kept");

    service_.copyPortalDir(result_, helion::test::copyRequest(source_, "web"));
    EXPECT_EQ(result_, R"({"code":0,"message":"successful","data":""})");
    EXPECT_EQ(portalFile("web/a.PNG"), "a.PNG");
    EXPECT_EQ(portalFile("web/c.css.map"), "c.css.map");
    EXPECT_EQ(portalFile("web/sub/d.woff2"), "sub/d.woff2");
    EXPECT_EQ(portalFile("web/kept.txt"), "kept");
    EXPECT_FALSE(fs::exists(root_ / "web/b.js"));
    EXPECT_FALSE(fs::exists(root_ / "web/sub/e.html"));
    EXPECT_TRUE(fs::is_directory(root_ / "web/empty"));
    EXPECT_FALSE(fs::exists(source_));

    scratch_.write("unpacked/x.svg", "svg");
    service_.copyPortalDir(result_, helion::test::copyRequest(source_, ""));  // the root itself
    EXPECT_EQ(portalFile("x.svg"), "svg");
}

TEST_F(PortalCopy, FailuresAnswerWithTheirCodes) {
    service_.copyPortalDir(result_, helion::test::copyRequest(source_, "web"));
    EXPECT_EQ(result_, R"({"code":7,"message":"source file not exist","data":""})");
    EXPECT_TRUE(log_.contains("srcDir:" + source_ + " is not exists"));
    service_.copyPortalDir(result_, helion::test::copyRequest("", "web"));
    EXPECT_EQ(result_, R"({"code":7,"message":"source file not exist","data":""})");
    service_.copyPortalDir(result_, "{");
    EXPECT_EQ(result_, R"({"code":3,"message":"req json error","data":""})");
    EXPECT_FALSE(fs::exists(root_ / "web"));

    scratch_.write("unpacked/x.css", "x");
    plant("blocker");
    service_.copyPortalDir(result_, helion::test::copyRequest(source_, "blocker/web"));
    const auto envelope = helion::test::parseEnvelope(result_);
    EXPECT_EQ(envelope.code, 9);
    EXPECT_TRUE(log_.contains("create dir error; Reason: " + envelope.message));
    EXPECT_TRUE(fs::exists(source_));
}

// Same directory, through a link, target inside source, source inside target: refused before
// anything is created, moved or removed.
TEST_F(PortalCopy, NeverCopiesADirectoryOntoOrIntoItself) {
    plant("p/a.css", "a");
    plant("p/inner/b.css", "b");
    fs::create_directory_symlink(root_ / "p", scratch_.path() / "link");
    const std::string p = (root_ / "p").string();
    const struct {
        std::string src, dir, reason;
    } cases[] = {
        {p, "p", "source and target are the same directory"},
        {(scratch_.path() / "link").string(), "p/", "source and target are the same directory"},
        {p, "p/sub", "the target lies inside the source"},
        {p + "/inner", "p", "the source lies inside the target"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.src + " " + c.dir);
        log_.clear();
        service_.copyPortalDir(result_, helion::test::copyRequest(c.src, c.dir));
        EXPECT_EQ(result_, R"({"code":4,"message":"copy file error","data":""})");
        EXPECT_TRUE(log_.contains("srcDir:" + c.src + " and target:" + (root_ / c.dir).string() +
                                  " refused; Reason: " + c.reason));
        EXPECT_EQ(portalFile("p/a.css"), "a");
        EXPECT_EQ(portalFile("p/inner/b.css"), "b");
        EXPECT_FALSE(fs::exists(root_ / "p/sub"));
    }
}

// Any name the file system takes; a file that cannot replace its target and the temporaries of
// an interrupted copy leave nothing of the copy's own behind.
TEST_F(PortalCopy, CopiesAnyNameAndLeavesNoTemporaryBehind) {
    const std::string longName = std::string(245, 'n') + ".css";
    scratch_.write("unpacked/" + longName, "long");
    scratch_.write("unpacked/busy.css", "busy");
    scratch_.write("unpacked/sub/c.css", "c");
    plant("web/busy.css/inside", "a non-empty directory in the way");
    plant("web/.helion-copy-Ab12Zz", "left by a killed copy");
    plant("web/sub/.helion-copy-000000", "left by a killed copy");
    plant("web/.helion-copy-kept.css", "not a name a copy makes");

    EXPECT_EQ(call(&Service::copyPortalDir, helion::test::copyRequest(source_, "web")).code, 0);
    EXPECT_EQ(portalFile("web/" + longName), "long");
    EXPECT_EQ(portalFile("web/sub/c.css"), "c");
    EXPECT_TRUE(log_.contains("copy file error; Reason: "));
    EXPECT_EQ(readFile(source_ + "/busy.css"), "busy");
    std::vector<std::string> left;
    for (fs::recursive_directory_iterator it(root_ / "web"), end; it != end; ++it) {
        left.push_back(fs::relative(it->path(), root_ / "web").string());
    }
    std::sort(left.begin(), left.end());
    EXPECT_EQ(left, (std::vector<std::string>{".helion-copy-kept.css", "busy.css",
                                              "busy.css/inside", longName, "sub", "sub/c.css"}));
}

// Whatever the umask and the source's mode, what the module installs is 0644 and 0755.
TEST_F(PortalCopy, InstalledFilesAndDirectoriesHaveThePortalsModes) {
    const auto modeOf = [this](const std::string& relative) {
        struct stat status {};
        ::lstat((root_ / relative).c_str(), &status);
        return status.st_mode & 07777;
    };
    for (const mode_t mask : {0000, 0077}) {
        SCOPED_TRACE(mask);
        const mode_t old = ::umask(mask);
        const auto zip = helion::test::signedPackage(scratch_, "modes.zip", {{"d/x.css", "x"}});
        EXPECT_EQ(call(&Service::updatePortal, helion::test::updateRequest(zip, "new/web")).code,
                  0);
        scratch_.write("unpacked/s/y.css", "y");
        ::chmod((source_ + "/s/y.css").c_str(), 06777);
        EXPECT_EQ(
            call(&Service::copyPortalDir, helion::test::copyRequest(source_, "copied/web")).code,
            0);
        ::umask(old);
        for (const char* dir : {"new", "new/web", "new/web/d", "copied", "copied/web/s"}) {
            EXPECT_EQ(modeOf(dir), 0755u) << dir;
        }
        EXPECT_EQ(modeOf("new/web/d/x.css"), 0644u);
        EXPECT_EQ(modeOf("copied/web/s/y.css"), 0644u);
        fs::remove_all(root_ / "new");
        fs::remove_all(root_ / "copied");
    }
}

TEST_F(PortalCopy, TheFilterIsACaseFoldedSubstringTest) {
    auto in = [this](const std::string& name, const std::vector<std::string>& list) {
        return corvid::SdpPromoteServiceImplAccess::stringInList(service_, name, list);
    };
    EXPECT_TRUE(in("LOGO.PNG", {".png"}));
    EXPECT_TRUE(in("x.jpg.bak", {".gif", ".jpg"}));
    EXPECT_TRUE(in("anything", {".png", ""}));
    EXPECT_FALSE(in("x.png", {".PNG"}));  // the list is not folded
    EXPECT_FALSE(in(".pn", {".png"}));
}

using PortalDelete = helion::test::PortalRootTest;

TEST_F(PortalDelete, RemovesWhateverExistsAndSkipsTheRest) {
    constexpr const char* kSuccess = R"({"code":0,"message":"successful","data":""})";
    const fs::path sibling = root_.parent_path().parent_path() / "helion-portal-sibling";
    plant("web/a/b.txt");
    plant("file.txt");
    plant("keep/c.txt");
    fs::create_directories(sibling / "inner");
    service_.delPortalDir(result_, "");
    EXPECT_EQ(result_, R"({"code":3,"message":"req json error","data":""})");
    service_.delPortalDir(result_, R"({"portalDirs":[]})");
    EXPECT_EQ(result_, kSuccess);
    EXPECT_TRUE(fs::exists(root_ / "web/a/b.txt"));
    log_.clear();
    service_.delPortalDir(
        result_, R"({"portalDirs":["web","missing","/file.txt","../helion-portal-sibling"]})");
    EXPECT_EQ(result_, kSuccess);
    EXPECT_FALSE(fs::exists(root_ / "web"));
    EXPECT_FALSE(fs::exists(root_ / "file.txt"));
    EXPECT_FALSE(fs::exists(sibling));
    EXPECT_TRUE(fs::exists(root_ / "keep/c.txt"));
    EXPECT_EQ(log_.lines().size(), 2u);  // start and success only
    service_.delPortalDir(result_, R"({"portalDirs":[""]})");
    EXPECT_EQ(result_, kSuccess);
    EXPECT_FALSE(fs::exists(root_));
}

}  // namespace
