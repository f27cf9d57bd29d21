// Package signatures made here with the development key and others, checked by the module.
#include <gtest/gtest.h>
#include <openssl/evp.h>

#include "portal/PackageKit.h"
#include "portal/PortalAccess.h"
#include "support/TestSupport.h"

namespace {

using corvid::SdpPromoteServiceImplAccess;
using helion::test::sign;

class SignatureCheck : public ::testing::Test {
protected:
    void SetUp() override {
        helion::test::writeZip(zipPath_,
                               {{"index.html", "<html>portal</html>"}, {"app.css", "a{}"}});
        package_ = helion::test::readFile(zipPath_);
    }

    bool verifyWith(const std::string& signature) {
        const auto signPath = dir_.write("package.sig", signature);
        return SdpPromoteServiceImplAccess::verifySignature(service_, zipPath_, signPath);
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
    ASSERT_EQ(signature.size(), 256u);
    EXPECT_TRUE(verifyWith(signature));
    EXPECT_TRUE(log_.contains("rsa_sha256_verify result:true"));
    // Only the first 256 bytes count.
    EXPECT_TRUE(verifyWith(signature + "trailing bytes"));
}

TEST_F(SignatureCheck, AnEmptyPackageSignedOverZeroBytesVerifies) {
    dir_.write("package.zip", "");
    EXPECT_TRUE(verifyWith(sign("", devKey())));
}

TEST_F(SignatureCheck, ForgeriesAndOtherSchemesAreRejected) {
    std::string tampered = package_;
    tampered[tampered.size() / 2] ^= 0x01;
    const std::string good = sign(package_, devKey());
    EXPECT_FALSE(verifyWith(sign(tampered, devKey())));
    dir_.write("package.zip", tampered);
    EXPECT_FALSE(verifyWith(good));
    dir_.write("package.zip", package_);

    const auto other = helion::test::otherPrivateKey();
    EXPECT_FALSE(verifyWith(sign(package_, other.get())));
    EXPECT_FALSE(verifyWith(sign(package_, devKey(), EVP_sha1())));
    EXPECT_FALSE(verifyWith(sign(package_, devKey(), EVP_sha256(), true)));

    // The same valid signature as base64 text.
    std::string base64(4 * ((good.size() + 2) / 3) + 1, '\0');
    base64.resize(static_cast<std::size_t>(EVP_EncodeBlock(
        reinterpret_cast<unsigned char*>(base64.data()),
        reinterpret_cast<const unsigned char*>(good.data()), static_cast<int>(good.size()))));
    EXPECT_FALSE(verifyWith(base64));

    // Shorter than the modulus, even when it is a prefix of the right one.
    EXPECT_FALSE(verifyWith(good.substr(0, 255)));
    EXPECT_FALSE(verifyWith("x"));
    EXPECT_EQ(log_.matching("rsa_sha256_verify result:false").size(), 8u);
    EXPECT_TRUE(verifyWith(good));
}

TEST_F(SignatureCheck, AnEmptySignatureIsANullString) {
    EXPECT_FALSE(verifyWith(""));
    const auto lines = log_.matching("[Tag null:rsa_sha256_verify:");
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_EQ(lines[0].level, spdlog::level::warn);
    EXPECT_NE(lines[0].text.find("or signData: or publicKeyData:-----BEGIN PUBLIC KEY-----"),
              std::string::npos);
    EXPECT_NE(lines[0].text.find("is null string"), std::string::npos);
    EXPECT_TRUE(log_.contains("rsa_sha256_verify result:false"));
}

TEST_F(SignatureCheck, MissingFilesFailBeforeAnyCheck) {
    const std::string missing = (dir_.path() / "missing.sig").string();
    EXPECT_FALSE(SdpPromoteServiceImplAccess::verifySignature(service_, zipPath_, missing));
    EXPECT_TRUE(log_.contains(missing + " not exist; Reason: reason："));
    EXPECT_TRUE(log_.contains("read:" + missing + " failed"));

    EXPECT_FALSE(SdpPromoteServiceImplAccess::verifySignature(service_, missing, zipPath_));
    EXPECT_FALSE(log_.contains("rsa_sha256_verify result"));
}

TEST_F(SignatureCheck, ReadFileContentKeepsEveryByte) {
    std::string out = "stale";
    const std::string binary("a\0b\r\n\xff", 6);
    EXPECT_TRUE(
        SdpPromoteServiceImplAccess::readFileContent(service_, dir_.write("bin", binary), out));
    EXPECT_EQ(out, binary);
    EXPECT_TRUE(
        SdpPromoteServiceImplAccess::readFileContent(service_, dir_.write("empty", ""), out));
    EXPECT_EQ(out, "");
}

}  // namespace
