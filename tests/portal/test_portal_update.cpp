// updatePortal on the test portal root: envelopes and what is left on disk after each outcome.
#include <gtest/gtest.h>

#include "portal/PackageKit.h"
#include "portal/PortalFixture.h"

namespace {

namespace fs = boost::filesystem;
using helion::test::readFile;

class PortalUpdate : public helion::test::PortalRootTest {
protected:
    // Signs bytes (then flips a bit when tamper is set) and returns the request for portalDir.
    std::string request(const std::string& portalDir, std::string bytes, bool tamper = false) {
        static const helion::test::Pkey key = helion::test::devPrivateKey();
        const std::string sig = scratch_.write("portal.sig", helion::test::sign(bytes, key.get()));
        if (tamper) {
            bytes.back() ^= 0x10;
        }
        const std::string zip = scratch_.write("portal.zip", bytes);
        return R"({"srcZip":")" + zip + R"(","portalDir":")" + portalDir + R"(","signFile":")" +
               sig + R"("})";
    }
    std::string package() {
        const std::string zip = (scratch_.path() / "built.zip").string();
        helion::test::writeZip(zip,
                               {{"index.html", "<html/>"}, {"css/", ""}, {"css/app.css", "a{}"}});
        return readFile(zip);
    }
    static constexpr const char* kSuccess = R"({"code":0,"message":"successful","data":""})";
};

TEST_F(PortalUpdate, ReplacesTheDirectoryWithThePackage) {
    plant("web/stale.txt");
    plant("other/keep.txt", "kept");
    service_.updatePortal(result_, request("web", package()));
    EXPECT_EQ(result_, kSuccess);
    EXPECT_EQ(readFile((root_ / "web/index.html").string()), "<html/>");
    EXPECT_EQ(readFile((root_ / "web/css/app.css").string()), "a{}");
    EXPECT_FALSE(fs::exists(root_ / "web/stale.txt"));
    EXPECT_EQ(readFile((root_ / "other/keep.txt").string()), "kept");
    EXPECT_TRUE(log_.contains("path:" + (root_ / "web").string() + " is exists, will remove"));
}

TEST_F(PortalUpdate, TargetsAreJoinedTextuallyBelowTheRoot) {
    plant("plain", "a file where the portal goes");
    service_.updatePortal(result_, request("plain", package()));
    EXPECT_EQ(readFile((root_ / "plain/index.html").string()), "<html/>");

    service_.updatePortal(result_, request("/lead/web", package()));
    EXPECT_EQ(readFile((root_ / "lead/web/index.html").string()), "<html/>");
    EXPECT_TRUE(
        log_.contains("create dir:" + root_.string() + "/lead/web"));  // appended as it stands

    // An empty name is the root itself: everything else below it goes.
    service_.updatePortal(result_, request("", package()));
    EXPECT_EQ(result_, kSuccess);
    EXPECT_EQ(readFile((root_ / "index.html").string()), "<html/>");
    EXPECT_FALSE(fs::exists(root_ / "lead"));
}

TEST_F(PortalUpdate, RejectedRequestsLeaveTheDiskAlone) {
    plant("web/index.html", "installed");
    service_.updatePortal(result_, request("web", package(), true));
    EXPECT_EQ(result_, R"({"code":1,"message":"verify signature error","data":""})");
    service_.updatePortal(result_, "not json");
    EXPECT_EQ(result_, R"({"code":3,"message":"req json error","data":""})");
    EXPECT_EQ(readFile((root_ / "web/index.html").string()), "installed");
}

TEST_F(PortalUpdate, LaterFailuresComeAfterTheOldPortalIsGone) {
    plant("blocker", "file");
    service_.updatePortal(result_, request("blocker/web", package()));
    const auto envelope = helion::test::parseEnvelope(result_);
    EXPECT_EQ(envelope.code, 9);
    EXPECT_NE(envelope.message, "create dir error");  // the system's own text
    EXPECT_TRUE(log_.contains("create dir error; Reason: " + envelope.message));
    EXPECT_EQ(readFile((root_ / "blocker").string()), "file");

    plant("web/old.txt");
    service_.updatePortal(result_, request("web", "signed, but no archive"));
    EXPECT_EQ(result_, R"({"code":2,"message":"decompression error","data":""})");
    EXPECT_TRUE(fs::is_directory(root_ / "web"));
    EXPECT_TRUE(fs::is_empty(root_ / "web"));
    EXPECT_TRUE(fs::exists(scratch_.path() / "portal.zip"));
}

}  // namespace
