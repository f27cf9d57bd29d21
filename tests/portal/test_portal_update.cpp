// updatePortal on the test portal root: envelopes, log lines and what is left on disk.
#include <gtest/gtest.h>

#include "portal/PortalFixture.h"
#include "support/FaultSupport.h"

namespace {

namespace fs = boost::filesystem;
using helion::test::readFile;

constexpr const char* kSuccess = R"({"code":0,"message":"successful","data":""})";

class PortalUpdate : public helion::test::PortalRootTest {
protected:
    // Signs bytes (then flips a bit when tamper is set) and returns the request for portalDir.
    std::string request(const std::string& portalDir, std::string bytes, bool tamper = false) {
        static const helion::test::Pkey key = helion::test::devPrivateKey();
        const std::string name = "portal" + std::to_string(++count_);
        sig_ = scratch_.write(name + ".sig", helion::test::sign(bytes, key.get()));
        bytes.back() ^= tamper ? 0x10 : 0;
        zip_ = scratch_.write(name + ".zip", bytes);
        return helion::test::updateRequest({zip_, sig_}, portalDir);
    }
    std::string package() {
        const std::string zip = (scratch_.path() / "built.zip").string();
        helion::test::writeZip(zip,
                               {{"index.html", "<html/>"}, {"css/", ""}, {"css/app.css", "a{}"}});
        return readFile(zip);
    }
    int count_ = 0;
    std::string zip_, sig_;
};

TEST_F(PortalUpdate, ReplacesTheTargetWithThePackage) {
    // {portalDir, what stands there before, where index.html lands, what must be gone}
    const struct {
        const char* dir;
        const char* planted;
        const char* index;
        const char* gone;
    } cases[] = {
        {"web", "web/stale.txt", "web/index.html", "web/stale.txt"},
        {"plain", "plain", "plain/index.html", nullptr},    // a plain file in the way
        {"/lead/web", "", "lead/web/index.html", nullptr},  // appended, not absolute
        {"", "lead/x", "index.html", "lead"},               // the root itself
    };
    plant("other/keep.txt", "kept");
    for (const auto& c : cases) {
        SCOPED_TRACE(c.dir);
        if (*c.planted != '\0') {
            plant(c.planted);
        }
        log_.clear();
        service_.updatePortal(result_, request(c.dir, package()));
        EXPECT_EQ(result_, kSuccess);
        EXPECT_EQ(portalFile(c.index), "<html/>");
        EXPECT_EQ(portalFile((fs::path(c.index).parent_path() / "css/app.css").string()), "a{}");
        EXPECT_TRUE(c.gone == nullptr || !fs::exists(root_ / c.gone));
        const std::string target = root_.string() + c.dir;  // a textual join
        EXPECT_EQ(log_.contains("path:" + target + " is exists, will remove"), *c.planted != '\0');
        EXPECT_TRUE(log_.contains("create dir:" + target));
        const auto lines = log_.lines();
        EXPECT_NE(lines.front().text.find("[HelionPromote:updatePortal:"), std::string::npos);
        EXPECT_NE(lines.front().text.find("]: updatePortal start"), std::string::npos);
        EXPECT_NE(lines.back().text.find("]: updatePortal success"), std::string::npos);
    }
    EXPECT_FALSE(fs::exists(root_ / "other/keep.txt"));  // gone with the root
}

TEST_F(PortalUpdate, FailuresAnswerTheirCodeAndKeepOrLoseTheOldPortalAsDocumented) {
    plant("web/index.html", "installed");
    plant("blocker", "file");
    const struct {
        std::string param;
        int code;
        std::string message, logged;
        bool webKept;
    } cases[] = {
        {request("web", package(), true), 1, "verify signature error", "", true},
        {"not json", 3, "req json error", "", true},
        // The system's own text, not the category's.
        {request("blocker/web", package()), 9, "Not a directory",
         "create dir error; Reason: Not a directory", true},
        {request("web", "signed, but no archive"), 2, "decompression error", "", false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.code);
        log_.clear();
        service_.updatePortal(result_, c.param);
        EXPECT_EQ(result_, R"({"code":)" + std::to_string(c.code) + R"(,"message":")" + c.message +
                               R"(","data":""})");
        const std::string logged = c.logged.empty() ? c.message : c.logged;
        const auto warnings = log_.matching("]: " + logged);
        ASSERT_EQ(warnings.size(), 1u);
        EXPECT_EQ(warnings[0].level, spdlog::level::warn);
        EXPECT_EQ(warnings[0].text.substr(warnings[0].text.rfind("]: ") + 3), logged);
        EXPECT_EQ(portalFile("web/index.html") == "installed", c.webKept);
    }
    EXPECT_EQ(portalFile("blocker"), "file");
    EXPECT_TRUE(fs::is_empty(root_ / "web"));  // the old portal went before extraction failed
    EXPECT_TRUE(fs::exists(zip_));             // packages are only read
}

}  // namespace
