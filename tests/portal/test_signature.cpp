// Package signatures made here with the development key and others, checked by the module.
#include <gtest/gtest.h>
#include <openssl/err.h>

#include "portal/PackageKit.h"
#include "support/ServiceAccess.h"
#include "support/TestSupport.h"
#ifdef HELION_TEST_TOOLS
#include "tools/lib/PackageSignature.h"
#endif

namespace {

using helion::test::sign;
using Access = corvid::SdpPromoteServiceImplAccess;

class SignatureCheck : public ::testing::Test {
protected:
    void SetUp() override {
        helion::test::writeZip(zipPath_,
                               {{"index.html", "<html>portal</html>"}, {"app.css", "a{}"}});
        package_ = helion::test::readFile(zipPath_);
    }
    bool verifyWith(const std::string& signature, const std::string& package) {
        dir_.write("package.zip", package);
        const auto signPath = dir_.write("package.sig", signature);
        const bool verified = Access::verifySignature(service_, zipPath_, signPath);
        // What a failed check pushed on this thread's error queue must not outlive it: the host's
        // next OpenSSL call would read it as its own.
        EXPECT_EQ(ERR_peek_error(), 0ul) << "left by the module";
#ifdef HELION_TEST_TOOLS
        // The tool promises the module's verdict, and leaves the queue as clean.
        EXPECT_EQ(helion::tools::verifyPackageFile(zipPath_, signPath, devKey()).valid(), verified);
        EXPECT_EQ(ERR_peek_error(), 0ul) << "left by the tool";
#endif
        return verified;
    }
    static EVP_PKEY* devKey() {
        static const helion::test::Pkey key = helion::test::devPrivateKey();
        return key.get();
    }

    helion::test::LogCapture log_;
    helion::test::TempDir dir_;
    corvid::SdpPromoteServiceImpl service_;
    std::string zipPath_ = (dir_.path() / "package.zip").string();
    std::string package_;
};

TEST_F(SignatureCheck, ValidSignaturesVerify) {
    const std::string signature = sign(package_, devKey());
    EXPECT_TRUE(verifyWith(signature, package_));
    EXPECT_TRUE(log_.contains("rsa_sha256_verify result:true"));
    EXPECT_TRUE(verifyWith(signature + "trailing bytes", package_));  // only 256 bytes count
    EXPECT_TRUE(verifyWith(sign("", devKey()), ""));  // an empty package is hashed too
}

TEST_F(SignatureCheck, ForgeriesAndOtherSchemesAreRejected) {
    const std::string good = sign(package_, devKey());
    std::string tampered = package_;
    tampered[tampered.size() / 2] ^= 0x01;
    EXPECT_FALSE(verifyWith(good, tampered));
    EXPECT_FALSE(verifyWith(sign(package_, helion::test::otherPrivateKey().get()), package_));
    EXPECT_FALSE(verifyWith(sign(package_, devKey(), EVP_sha1()), package_));
    EXPECT_FALSE(verifyWith(sign(package_, devKey(), EVP_md5_sha1()), package_));  // no DigestInfo
    EXPECT_FALSE(verifyWith(sign(package_, devKey(), EVP_sha256(), true), package_));

    std::string base64(4 * ((good.size() + 2) / 3) + 1, '\0');
    base64.resize(static_cast<std::size_t>(EVP_EncodeBlock(
        reinterpret_cast<unsigned char*>(base64.data()),
        reinterpret_cast<const unsigned char*>(good.data()), static_cast<int>(good.size()))));
    EXPECT_FALSE(verifyWith(base64, package_));
    // Shorter than the modulus, even as a prefix of the right one.
    EXPECT_FALSE(verifyWith(good.substr(0, 255), package_));
    EXPECT_EQ(log_.matching("rsa_sha256_verify result:false").size(), 7u);
}

// The line shows a bounded prefix of the package: 1024 control bytes, escaped to four each.
TEST_F(SignatureCheck, AnEmptySignatureIsANullString) {
    EXPECT_FALSE(verifyWith("", std::string(1 << 20, '\x01')));
    const auto lines = log_.matching("[Tag null:rsa_sha256_verify:");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].level, spdlog::level::warn);
    std::string shown;
    for (int i = 0; i < 1024; ++i) {
        shown += "\\x01";
    }
    EXPECT_NE(lines[0].text.find("verifyData:" + shown +
                                 "... [1047552 bytes left out] or signData:"
                                 " or publicKeyData:-----BEGIN PUBLIC KEY-----"),
              std::string::npos);
    EXPECT_TRUE(log_.contains("rsa_sha256_verify result:false"));
}

TEST_F(SignatureCheck, MissingFilesFailBeforeAnyCheck) {
    const std::string missing = (dir_.path() / "missing").string();
    EXPECT_FALSE(Access::verifySignature(service_, zipPath_, missing));
    EXPECT_TRUE(log_.contains(missing + " not exist; Reason: reason："));
    EXPECT_TRUE(log_.contains("read:" + missing + " failed"));
    EXPECT_FALSE(Access::verifySignature(service_, missing, zipPath_));
    EXPECT_FALSE(log_.contains("rsa_sha256_verify result"));
}

// The read starts from the size the file reports; what that does not tell must still be read:
// empty, binary, larger than one read, and /proc's files that report 0 and hold text.
TEST_F(SignatureCheck, WholeFilesAreReadWhateverSizeTheyReport) {
    std::string large(300 * 1024 + 7, '\0');
    for (std::size_t i = 0; i < large.size(); ++i) {
        large[i] = static_cast<char>(i * 131 % 251);
    }
    for (const std::string& content : {std::string(), std::string("a\0b\r\n\xff", 6), large}) {
        std::string out = "stale";
        EXPECT_TRUE(Access::readFileContent(service_, dir_.write("file", content), out));
        EXPECT_EQ(out, content);
    }
    std::string out;
    EXPECT_TRUE(Access::readFileContent(service_, "/proc/self/status", out));
    EXPECT_EQ(out.compare(0, 5, "Name:"), 0);
}

}  // namespace
