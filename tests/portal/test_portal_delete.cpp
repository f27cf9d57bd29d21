// delPortalDir: best-effort removal below the portal root.
#include <gtest/gtest.h>

#include "portal/PortalFixture.h"

namespace {

namespace fs = boost::filesystem;
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
