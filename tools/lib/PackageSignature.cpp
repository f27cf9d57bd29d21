#include "tools/lib/PackageSignature.h"

#include <openssl/rsa.h>

#include <memory>

#include "tools/lib/FileIo.h"
#include "tools/lib/OpenSslKeys.h"

namespace helion::tools {

namespace {

struct MdCtxFree {
    void operator()(EVP_MD_CTX* ctx) const { EVP_MD_CTX_free(ctx); }
};
using MdCtxPtr = std::unique_ptr<EVP_MD_CTX, MdCtxFree>;

}  // namespace

std::string signPackage(const std::string& data, EVP_PKEY* key) {
    if (EVP_PKEY_get_bits(key) != kPortalKeyBits) {
        throw ToolError("the signing key has " + std::to_string(EVP_PKEY_get_bits(key)) +
                        " bits; portal packages are signed with RSA-2048 keys");
    }
    MdCtxPtr ctx(EVP_MD_CTX_new());
    EVP_PKEY_CTX* keyCtx = nullptr;
    std::string signature(kSignatureBytes, '\0');
    std::size_t length = signature.size();
    if (!ctx || EVP_DigestSignInit(ctx.get(), &keyCtx, EVP_sha256(), nullptr, key) != 1 ||
        EVP_PKEY_CTX_set_rsa_padding(keyCtx, RSA_PKCS1_PADDING) != 1 ||
        EVP_DigestSign(ctx.get(), reinterpret_cast<unsigned char*>(signature.data()), &length,
                       reinterpret_cast<const unsigned char*>(data.data()), data.size()) != 1) {
        throw ToolError("cannot sign: " + takeOpenSslErrors());
    }
    signature.resize(length);
    return signature;
}

Verdict verifyPackage(const std::string& data, const std::string& signature, EVP_PKEY* key) {
    if (signature.size() < kSignatureBytes) {
        return {false, "the signature has " + std::to_string(signature.size()) +
                           " bytes; it needs at least " + std::to_string(kSignatureBytes)};
    }
    MdCtxPtr ctx(EVP_MD_CTX_new());
    EVP_PKEY_CTX* keyCtx = nullptr;
    if (!ctx || EVP_DigestVerifyInit(ctx.get(), &keyCtx, EVP_sha256(), nullptr, key) != 1 ||
        EVP_PKEY_CTX_set_rsa_padding(keyCtx, RSA_PKCS1_PADDING) != 1) {
        return {false, "cannot set up verification: " + takeOpenSslErrors()};
    }
    const int result = EVP_DigestVerify(
        ctx.get(), reinterpret_cast<const unsigned char*>(signature.data()), kSignatureBytes,
        reinterpret_cast<const unsigned char*>(data.data()), data.size());
    if (result != 1) {
        // The queue only says which padding check failed; the operator needs the verdict.
        takeOpenSslErrors();
        return {false, "the signature does not match the package and key"};
    }
    return {true, {}};
}

}  // namespace helion::tools
