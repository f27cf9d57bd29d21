#pragma once
// RSA keys for portal signing through OpenSSL's EVP interface.

#include <openssl/evp.h>

#include <string>

#include "common/OpenSslPtr.h"

namespace helion::tools {

using corvid::openssl::PkeyPtr;

/// The module verifies exactly this: RSA-2048 signatures of 256 bytes.
inline constexpr int kPortalKeyBits = 2048;
inline constexpr std::size_t kSignatureBytes = 256;

/// OpenSSL's queued error texts, "; "-joined (empties the queue); "unknown error" if none.
std::string takeOpenSslErrors();

/// A fresh RSA-2048 key with exponent 65537. Throws ToolError.
PkeyPtr generatePortalKey();

/// Private key as unencrypted PKCS#8 PEM; public key as SubjectPublicKeyInfo PEM, the form the
/// module is built with. Throw ToolError.
std::string privateKeyPem(EVP_PKEY* key);
std::string publicKeyPem(EVP_PKEY* key);

/// Reads a PEM key file; throws ToolError unless it holds an RSA key of the given kind.
PkeyPtr loadPrivateKey(const std::string& path);
PkeyPtr loadPublicKey(const std::string& path);

/// SHA-256 of the key's DER SubjectPublicKeyInfo as 64 lowercase hex digits: the same as
/// `openssl pkey -pubin -outform DER | sha256sum`. Throws ToolError.
std::string publicKeyFingerprint(EVP_PKEY* key);

}  // namespace helion::tools
