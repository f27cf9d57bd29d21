// updatePortal on the test portal root: envelopes and what is left on disk after each outcome.
#include <gtest/gtest.h>

#include "portal/PackageKit.h"
#include "portal/PortalFixture.h"

namespace {

namespace fs = boost::filesystem;
using helion::test::readFile;

class PortalUpdate : public helion::test::PortalRootTest {
protected:
    // A signed package holding index.html and css/app.css; returns its request JSON.
    std::string package(const std::string& portalDir, bool tamper = false) {
        const std::string zip = (scratch_.path() / "portal.zip").string();
        helion::test::writeZip(zip,
                               {{"index.html", "<html/>"}, {"css/", ""}, {"css/app.css", "a{}"}});
        std::string bytes = readFile(zip);
        static const helion::test::Pkey key = helion::test::devPrivateKey();
        const std::string signature = helion::test::sign(bytes, key.get());
        if (tamper) {
            bytes.back() ^= 0x10;
            scratch_.write("portal.zip", bytes);
        }
        const std::string sig = scratch_.write("portal.sig", signature);
        return R"({"srcZip":")" + zip + R"(","portalDir":")" + portalDir + R"(","signFile":")" +
               sig + R"("})";
    }
};

TEST_F(PortalUpdate, ReplacesTheDirectoryWithThePackage) {
    plant("web/stale.txt");
    plant("other/keep.txt", "kept");
    service_.updatePortal(result_, package("web"));
    EXPECT_EQ(result_, R"({"code":0,"message":"successful","data":""})");
    EXPECT_EQ(readFile((root_ / "web/index.html").string()), "<html/>");
    EXPECT_EQ(readFile((root_ / "web/css/app.css").string()), "a{}");
    EXPECT_FALSE(fs::exists(root_ / "web/stale.txt"));
    EXPECT_EQ(readFile((root_ / "other/keep.txt").string()), "kept");
    EXPECT_TRUE(log_.contains("path:" + (root_ / "web").string() + " is exists, will remove"));
    EXPECT_TRUE(log_.contains("updatePortal success"));
}

TEST_F(PortalUpdate, TargetsAreJoinedTextuallyBelowTheRoot) {
    plant("plain", "a file where the portal goes");
    service_.updatePortal(result_, package("plain"));
    EXPECT_EQ(readFile((root_ / "plain/index.html").string()), "<html/>");

    service_.updatePortal(result_, package("/lead/web"));
    EXPECT_EQ(readFile((root_ / "lead/web/index.html").string()), "<html/>");
    // Appended as it stands, separator and all.
    EXPECT_TRUE(log_.contains("create dir:" + root_.string() + "/lead/web"));

    // An empty name is the root itself: everything else below it goes.
    service_.updatePortal(result_, package(""));
    EXPECT_EQ(result_, R"({"code":0,"message":"successful","data":""})");
    EXPECT_EQ(readFile((root_ / "index.html").string()), "<html/>");
    EXPECT_FALSE(fs::exists(root_ / "lead"));
}

TEST_F(PortalUpdate, RejectedRequestsLeaveTheDiskAlone) {
    plant("web/index.html", "installed");
    service_.updatePortal(result_, package("web", true));
    EXPECT_EQ(result_, R"({"code":1,"message":"verify signature error","data":""})");
    service_.updatePortal(result_, "not json");
    EXPECT_EQ(result_, R"({"code":3,"message":"req json error","data":""})");
    EXPECT_EQ(readFile((root_ / "web/index.html").string()), "installed");
    EXPECT_EQ(log_.matching("verify signature error").size(), 1u);
}

TEST_F(PortalUpdate, APlainFileInThePathFailsWithTheSystemText) {
    plant("blocker", "file");
    service_.updatePortal(result_, package("blocker/web"));
    const auto envelope = helion::test::parseEnvelope(result_);
    EXPECT_EQ(envelope.code, 9);
    EXPECT_FALSE(envelope.message.empty());
    EXPECT_NE(envelope.message, "create dir error");
    EXPECT_TRUE(log_.contains("create dir error; Reason: " + envelope.message));
    EXPECT_EQ(readFile((root_ / "blocker").string()), "file");
}

TEST_F(PortalUpdate, AnUnextractablePackageLeavesAnEmptyPortal) {
    plant("web/old.txt");
    const std::string zip = scratch_.write("bad.zip", "signed, but no archive");
    static const helion::test::Pkey key = helion::test::devPrivateKey();
    const std::string sig = scratch_.write("bad.sig", helion::test::sign(readFile(zip), key.get()));
    service_.updatePortal(
        result_, R"({"srcZip":")" + zip + R"(","portalDir":"web","signFile":")" + sig + R"("})");
    EXPECT_EQ(result_, R"({"code":2,"message":"decompression error","data":""})");
    EXPECT_TRUE(fs::is_directory(root_ / "web"));
    EXPECT_TRUE(fs::is_empty(root_ / "web"));
    EXPECT_EQ(readFile(zip), "signed, but no archive");
}

}  // namespace
