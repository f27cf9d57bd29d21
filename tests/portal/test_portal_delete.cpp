// delPortalDir: best-effort removal below the portal root.
#include <gtest/gtest.h>

#include "portal/PortalFixture.h"

namespace {

namespace fs = boost::filesystem;

class PortalDelete : public helion::test::PortalRootTest {
protected:
    void TearDown() override {
        boost::system::error_code ignored;
        fs::remove_all(sibling_, ignored);
        PortalRootTest::TearDown();
    }
    const fs::path sibling_ = root_.parent_path().parent_path() / "helion-portal-sibling";
};

TEST_F(PortalDelete, RemovesWhateverExistsAndSkipsTheRest) {
    plant("web/a/b.txt");
    plant("file.txt");
    plant("keep/c.txt");
    fs::create_directories(sibling_ / "inner");
    log_.clear();
    service_.delPortalDir(
        result_, R"({"portalDirs":["web","missing","/file.txt","../helion-portal-sibling"]})");
    EXPECT_EQ(result_, R"({"code":0,"message":"successful","data":""})");
    EXPECT_FALSE(fs::exists(root_ / "web"));
    EXPECT_FALSE(fs::exists(root_ / "file.txt"));
    EXPECT_FALSE(fs::exists(sibling_));
    EXPECT_TRUE(fs::exists(root_ / "keep/c.txt"));
    EXPECT_EQ(log_.lines().size(), 2u);  // start and success only
}

TEST_F(PortalDelete, UnboundRequestsEmptyListsAndEmptyEntries) {
    plant("web/a.txt");
    service_.delPortalDir(result_, "");
    EXPECT_EQ(result_, R"({"code":3,"message":"req json error","data":""})");
    service_.delPortalDir(result_, R"({"portalDirs":[]})");
    EXPECT_EQ(result_, R"({"code":0,"message":"successful","data":""})");
    EXPECT_TRUE(fs::exists(root_ / "web/a.txt"));

    service_.delPortalDir(result_, R"({"portalDirs":[""]})");
    EXPECT_EQ(result_, R"({"code":0,"message":"successful","data":""})");
    EXPECT_FALSE(fs::exists(root_));
}

}  // namespace
