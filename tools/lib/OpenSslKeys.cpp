#include "tools/lib/OpenSslKeys.h"

#include <openssl/bio.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <openssl/x509.h>

#include "tools/lib/FileIo.h"

namespace helion::tools {

namespace {

constexpr std::size_t kMaxKeyFileBytes = 64 * 1024;

using corvid::openssl::BioPtr;

std::string drain(BIO* bio) {
    char* data = nullptr;
    const long size = BIO_get_mem_data(bio, &data);
    return size > 0 ? std::string(data, static_cast<std::size_t>(size)) : std::string();
}

PkeyPtr requireRsa(PkeyPtr key, const std::string& path) {
    if (!EVP_PKEY_is_a(key.get(), "RSA")) {
        throw ToolError("'" + path + "' does not hold an RSA key");
    }
    return key;
}

using PemKeyReader = EVP_PKEY* (*)(BIO*, EVP_PKEY**, pem_password_cb*, void*);

PkeyPtr loadKey(const std::string& path, PemKeyReader read, const char* kind) {
    const std::string pem = readWholeFile(path, kMaxKeyFileBytes);
    BioPtr bio(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())));
    PkeyPtr key(bio ? read(bio.get(), nullptr, nullptr, nullptr) : nullptr);
    if (!key) {
        throw ToolError("'" + path + "' is not a PEM " + kind + " key: " + takeOpenSslErrors());
    }
    return requireRsa(std::move(key), path);
}

}  // namespace

std::string takeOpenSslErrors() {
    std::string text;
    unsigned long code = 0;
    while ((code = ERR_get_error()) != 0) {
        char buffer[256];
        ERR_error_string_n(code, buffer, sizeof(buffer));
        text += (text.empty() ? "" : "; ") + std::string(buffer);
    }
    return text.empty() ? "unknown error" : text;
}

PkeyPtr generatePortalKey() {
    PkeyPtr key(EVP_PKEY_Q_keygen(nullptr, nullptr, "RSA", static_cast<size_t>(kPortalKeyBits)));
    if (!key) {
        throw ToolError("cannot generate an RSA key: " + takeOpenSslErrors());
    }
    return key;
}

std::string privateKeyPem(EVP_PKEY* key) {
    BioPtr bio(BIO_new(BIO_s_mem()));
    if (!bio ||
        PEM_write_bio_PrivateKey(bio.get(), key, nullptr, nullptr, 0, nullptr, nullptr) != 1) {
        throw ToolError("cannot encode the private key: " + takeOpenSslErrors());
    }
    return drain(bio.get());
}

std::string publicKeyPem(EVP_PKEY* key) {
    BioPtr bio(BIO_new(BIO_s_mem()));
    if (!bio || PEM_write_bio_PUBKEY(bio.get(), key) != 1) {
        throw ToolError("cannot encode the public key: " + takeOpenSslErrors());
    }
    return drain(bio.get());
}

PkeyPtr loadPrivateKey(const std::string& path) {
    return loadKey(path, PEM_read_bio_PrivateKey, "private");
}

PkeyPtr loadPublicKey(const std::string& path) {
    return loadKey(path, PEM_read_bio_PUBKEY, "public");
}

std::string publicKeyFingerprint(EVP_PKEY* key) {
    unsigned char* der = nullptr;
    const int length = i2d_PUBKEY(key, &der);
    if (length <= 0) {
        throw ToolError("cannot encode the public key: " + takeOpenSslErrors());
    }
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned int digestLength = 0;
    const int hashed = EVP_Digest(der, static_cast<std::size_t>(length), digest, &digestLength,
                                  EVP_sha256(), nullptr);
    OPENSSL_free(der);
    if (hashed != 1) {
        throw ToolError("cannot hash the public key: " + takeOpenSslErrors());
    }
    static constexpr char kHex[] = "0123456789abcdef";
    std::string hex;
    for (unsigned int i = 0; i < digestLength; ++i) {
        hex += kHex[digest[i] >> 4];
        hex += kHex[digest[i] & 0x0f];
    }
    return hex;
}

}  // namespace helion::tools
