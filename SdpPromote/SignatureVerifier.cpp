// Checks a portal package against its detached RSA-2048 PKCS#1 v1.5 / SHA-256 signature with the
// public key compiled into the module. Nothing is cached: the key is parsed anew for every check.
#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>

#include <boost/filesystem.hpp>

#include "SdpPromote/BuildConstants.h"
#include "SdpPromote/RegularFile.h"
#include "SdpPromote/SdpPromoteServiceImpl.h"
#include "common/Log.h"
#include "common/OpenSslPtr.h"

namespace corvid {

namespace {

namespace fs = boost::filesystem;

// The crypto routines log under their own tag, apart from the service's lines.
constexpr const char* kCryptoTag = "Tag null";
// Modulus size of the signing key: the signature is always this long.
constexpr std::size_t kSignatureLength = 256;

using openssl::BioPtr;
using openssl::PkeyCtxPtr;
using openssl::PkeyPtr;

PkeyPtr generateRSA(const std::string& publicKeyData) {
    BioPtr bio(BIO_new_mem_buf(publicKeyData.c_str(), -1));
    if (!bio) {
        logging::guardedLog(spdlog::level::err, kCryptoTag, "generateRSA", __LINE__,
                            "generateRSA call BIO_new_mem_buf failed; Reason: please check key:{} "
                            "correct",
                            publicKeyData);
        return nullptr;
    }
    PkeyPtr key(PEM_read_bio_PUBKEY(bio.get(), nullptr, nullptr, nullptr));
    // Only an RSA key is acceptable, whatever else a PEM block may hold.
    if (!key || EVP_PKEY_base_id(key.get()) != EVP_PKEY_RSA) {
        logging::guardedLog(spdlog::level::err, kCryptoTag, "generateRSA", __LINE__,
                            "generateRSA call PEM_read_bio_RSA_PUBKEY failed; Reason: please check "
                            "key:{} correct",
                            publicKeyData);
        return nullptr;
    }
    return key;
}

bool verifyDigest(EVP_PKEY* key, const unsigned char* digest, std::size_t digestLength,
                  const std::string& signData) {
    PkeyCtxPtr ctx(EVP_PKEY_CTX_new(key, nullptr));
    return ctx && EVP_PKEY_verify_init(ctx.get()) == 1 &&
           EVP_PKEY_CTX_set_rsa_padding(ctx.get(), RSA_PKCS1_PADDING) == 1 &&
           EVP_PKEY_CTX_set_signature_md(ctx.get(), EVP_sha256()) == 1 &&
           EVP_PKEY_verify(ctx.get(), reinterpret_cast<const unsigned char*>(signData.data()),
                           kSignatureLength, digest, digestLength) == 1;
}

bool rsa_sha256_verify(const std::string& verifyData, const std::string& signData,
                       const std::string& publicKeyData) {
    // An empty package is hashed like any other; only the signature and key must be there.
    if (signData.empty() || publicKeyData.empty()) {
        logging::guardedLog(spdlog::level::warn, kCryptoTag, "rsa_sha256_verify", __LINE__,
                            "rsa_sha256_verify verify failed; Reason: verifyData:{} or signData:{} "
                            "or publicKeyData:{} is null string",
                            verifyData, signData, publicKeyData);
        return false;
    }
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int digestLength = 0;
    if (EVP_Digest(verifyData.data(), verifyData.size(), digest, &digestLength, EVP_sha256(),
                   nullptr) != 1) {
        ERR_clear_error();
        return false;
    }
    PkeyPtr key = generateRSA(publicKeyData);
    if (!key) {
        logging::guardedLog(spdlog::level::err, kCryptoTag, "rsa_sha256_verify", __LINE__,
                            "rsa_sha256_verify verify failed; Reason: call generateRSA failed");
        ERR_clear_error();
        return false;
    }
    // A longer signature file is checked on its first 256 bytes; a shorter one cannot match.
    const bool verified = signData.size() >= kSignatureLength &&
                          verifyDigest(key.get(), digest, digestLength, signData);
    // A failed check leaves entries on this thread's error queue; they would outlive the call.
    ERR_clear_error();
    return verified;
}

}  // namespace

bool SdpPromoteServiceImpl::readFileContent(const std::string& path, std::string& out,
                                            bool binary) {
    return readFileContent(path, out, binary, kMaxPackageBytes);
}

bool SdpPromoteServiceImpl::readFileContent(const std::string& path, std::string& out,
                                            bool /*binary: no text mode here*/, std::size_t limit) {
    boost::system::error_code ec;
    const fs::file_type type = fs::status(path, ec).type();
    if (type == fs::file_not_found || type == fs::status_error || ec) {
        HP_LOG(spdlog::level::warn, "{} not exist; Reason: reason：{}", path, ec.message());
        return false;
    }
    // Only a regular file is opened at all, and what is read is judged on that descriptor,
    // never by another look at the path.
    std::string refused;
    const FileDescriptor file = portal::openRegularFile(path, refused);
    if (!file && refused.empty()) {
        // The path is passed second and never shown: the line has always read this way.
        HP_LOG(spdlog::level::warn, "read failed; Reason: cann't open {}", "", path);
        return false;
    }
    if (file) {
        refused = portal::readRegularFile(file.get(), limit, out);
    }
    if (!refused.empty()) {
        HP_LOG(spdlog::level::warn, "read:{} refused; Reason: {}", path, refused);
        return false;
    }
    return true;
}

bool SdpPromoteServiceImpl::verifySignature(const std::string& zipPath,
                                            const std::string& signPath) {
    std::string verified;
    return verifySignature(zipPath, signPath, verified);
}

bool SdpPromoteServiceImpl::verifySignature(const std::string& zipPath, const std::string& signPath,
                                            std::string& zipData) {
    if (!readFileContent(zipPath, zipData, true, kMaxPackageBytes)) {
        HP_LOG(spdlog::level::warn, "read:{} failed{}", zipPath, "");
        return false;
    }
    std::string signData;
    if (!readFileContent(signPath, signData, true, kMaxSignatureBytes)) {
        HP_LOG(spdlog::level::warn, "read:{} failed{}", signPath, "");
        return false;
    }
    const std::string publicKeyData = build::kPortalPublicKey;
    const bool result = rsa_sha256_verify(zipData, signData, publicKeyData);
    HP_LOG(spdlog::level::info, "rsa_sha256_verify result:{}", result);
    return result;
}

}  // namespace corvid
