// copyPortalDir: which files move in, what happens to the source, and the failure envelopes;
// delPortalDir: best-effort removal below the portal root.
#include <gtest/gtest.h>

#include "faults/FaultSupport.h"
#include "portal/PortalFixture.h"
#include "support/ServiceAccess.h"

namespace {

namespace fs = boost::filesystem;

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
