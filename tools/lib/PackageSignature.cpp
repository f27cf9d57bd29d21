#include "tools/lib/PackageSignature.h"

#include <openssl/objects.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include <array>
#include <cstring>
#include <vector>

#include "tools/lib/FileIo.h"
#include "tools/lib/OpenSslKeys.h"

namespace helion::tools {

namespace {

using corvid::openssl::MdCtxPtr;
using corvid::openssl::PkeyCtxPtr;
using corvid::openssl::X509SigPtr;

/// DER of a SHA-256 DigestInfo up to the digest itself: what the module's check expects.
constexpr std::array<unsigned char, 19> kSha256DigestInfoPrefix = {
    0x30, 0x31, 0x30, 0x0d, 0x06, 0x09, 0x60, 0x86, 0x48, 0x01,
    0x65, 0x03, 0x04, 0x02, 0x01, 0x05, 0x00, 0x04, 0x20};

void requirePortalKey(EVP_PKEY* key) {
    if (EVP_PKEY_get_bits(key) != kPortalKeyBits) {
        throw ToolError("the key has " + std::to_string(EVP_PKEY_get_bits(key)) +
                        " bits; portal packages are signed with RSA-2048 keys");
    }
}

/// Sets ctx up for SHA-256 with PKCS#1 v1.5 padding, signing or verifying.
void initDigest(EVP_MD_CTX* ctx, EVP_PKEY* key, bool signing) {
    EVP_PKEY_CTX* keyCtx = nullptr;
    const int ready = signing ? EVP_DigestSignInit(ctx, &keyCtx, EVP_sha256(), nullptr, key)
                              : EVP_DigestVerifyInit(ctx, &keyCtx, EVP_sha256(), nullptr, key);
    if (ready != 1 || EVP_PKEY_CTX_set_rsa_padding(keyCtx, RSA_PKCS1_PADDING) != 1) {
        throw ToolError("cannot set up the RSA key: " + takeOpenSslErrors());
    }
}

/// Feeds the whole file into ctx through one fixed-size buffer.
void digestFile(EVP_MD_CTX* ctx, InputFile& in) {
    std::vector<unsigned char> buffer(kChunkBytes);
    std::size_t got = 0;
    while ((got = in.read(buffer.data(), buffer.size())) > 0) {
        if (EVP_DigestUpdate(ctx, buffer.data(), got) != 1) {
            throw ToolError("cannot hash '" + in.path() + "': " + takeOpenSslErrors());
        }
    }
}

std::string finishSignature(EVP_MD_CTX* ctx) {
    std::string signature(kSignatureBytes, '\0');
    std::size_t length = signature.size();
    if (EVP_DigestSignFinal(ctx, reinterpret_cast<unsigned char*>(signature.data()), &length) !=
        1) {
        throw ToolError("cannot sign: " + takeOpenSslErrors());
    }
    signature.resize(length);
    return signature;
}

MdCtxPtr newDigestContext() {
    MdCtxPtr ctx(EVP_MD_CTX_new());
    if (!ctx) {
        throw ToolError("out of memory");
    }
    return ctx;
}

/// What the signature holds once the key's padding is taken off; empty when it does not open
/// under the key.
std::string recoverDigestInfo(const unsigned char* signature, EVP_PKEY* key) {
    PkeyCtxPtr ctx(EVP_PKEY_CTX_new(key, nullptr));
    std::string recovered(kSignatureBytes, '\0');
    std::size_t length = recovered.size();
    if (!ctx || EVP_PKEY_verify_recover_init(ctx.get()) != 1 ||
        EVP_PKEY_CTX_set_rsa_padding(ctx.get(), RSA_PKCS1_PADDING) != 1) {
        throw ToolError("cannot set up the RSA key: " + takeOpenSslErrors());
    }
    if (EVP_PKEY_verify_recover(ctx.get(), reinterpret_cast<unsigned char*>(recovered.data()),
                                &length, signature, kSignatureBytes) != 1) {
        takeOpenSslErrors();
        return {};
    }
    recovered.resize(length);
    return recovered;
}

/// The digest algorithm a DigestInfo names ("SHA1", "1.2.3.4"), or empty if it is none.
std::string digestName(const std::string& digestInfo) {
    const auto* cursor = reinterpret_cast<const unsigned char*>(digestInfo.data());
    X509SigPtr info(d2i_X509_SIG(nullptr, &cursor, static_cast<long>(digestInfo.size())));
    if (!info) {
        takeOpenSslErrors();
        return {};
    }
    const X509_ALGOR* algorithm = nullptr;
    X509_SIG_get0(info.get(), &algorithm, nullptr);
    const ASN1_OBJECT* object = nullptr;
    X509_ALGOR_get0(&object, nullptr, nullptr, algorithm);
    char name[80] = {};
    OBJ_obj2txt(name, sizeof(name), object, 0);
    return name;
}

}  // namespace

std::string signPackage(const std::string& data, EVP_PKEY* key) {
    requirePortalKey(key);
    MdCtxPtr ctx = newDigestContext();
    initDigest(ctx.get(), key, true);
    if (EVP_DigestUpdate(ctx.get(), data.data(), data.size()) != 1) {
        throw ToolError("cannot sign: " + takeOpenSslErrors());
    }
    return finishSignature(ctx.get());
}

std::string signPackageFile(const std::string& path, EVP_PKEY* key) {
    requirePortalKey(key);
    InputFile in(path);
    MdCtxPtr ctx = newDigestContext();
    initDigest(ctx.get(), key, true);
    digestFile(ctx.get(), in);
    return finishSignature(ctx.get());
}

Verdict verifyPackageFile(const std::string& package, const std::string& signature, EVP_PKEY* key) {
    requirePortalKey(key);
    // Both files open before any judgement: one that cannot be read is no verdict.
    InputFile packageIn(package);
    InputFile signatureIn(signature);
    std::array<unsigned char, kSignatureBytes> head{};
    const std::size_t length = signatureIn.read(head.data(), head.size());
    if (length < kSignatureBytes) {
        return {Judgement::WrongLength, "the signature has " + std::to_string(length) +
                                            " bytes; a signature has " +
                                            std::to_string(kSignatureBytes)};
    }

    const std::string digestInfo = recoverDigestInfo(head.data(), key);
    if (digestInfo.empty()) {
        return {Judgement::OtherKey,
                "the signature does not open under this key: it was made with another key, "
                "or is not a signature"};
    }
    if (digestInfo.size() != kSha256DigestInfoPrefix.size() + 32 ||
        std::memcmp(digestInfo.data(), kSha256DigestInfoPrefix.data(),
                    kSha256DigestInfoPrefix.size()) != 0) {
        const std::string name = digestName(digestInfo);
        return {Judgement::OtherDigest,
                "the signature opens under this key but holds " +
                    (name.empty() ? std::string("no digest") : "a " + name + " digest") +
                    "; packages are signed over SHA-256"};
    }

    MdCtxPtr ctx = newDigestContext();
    initDigest(ctx.get(), key, false);
    digestFile(ctx.get(), packageIn);
    if (EVP_DigestVerifyFinal(ctx.get(), head.data(), head.size()) != 1) {
        takeOpenSslErrors();
        return {Judgement::Changed,
                "the package changed after signing: the signature opens under this key, but "
                "the SHA-256 digest inside is not the package's"};
    }
    return {Judgement::Valid, {}};
}

}  // namespace helion::tools
