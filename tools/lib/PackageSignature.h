#pragma once
// The detached package signature: raw RSASSA-PKCS1-v1_5 over SHA-256 of the whole package file.

#include <openssl/evp.h>

#include <string>

namespace helion::tools {

/// The 256-byte signature of data, or of the file at path read in fixed-size chunks. Throws
/// ToolError unless key is an RSA-2048 private key, or when the file cannot be read.
std::string signPackage(const std::string& data, EVP_PKEY* key);
std::string signPackageFile(const std::string& path, EVP_PKEY* key);

enum class Judgement {
    Valid,
    WrongLength,  ///< fewer than 256 bytes
    OtherKey,     ///< does not open under the key: another key's, or no signature at all
    OtherDigest,  ///< opens, but holds something other than a SHA-256 digest
    Changed,      ///< opens and holds a SHA-256 digest, but not the package's
};

struct Verdict {
    Judgement judgement = Judgement::OtherKey;
    /// Why not, when not valid.
    std::string reason;
    bool valid() const { return judgement == Judgement::Valid; }
};

/// The module's check (the signature file's first 256 bytes against SHA-256 of the whole
/// package, under an RSA-2048 public key), saying which way a bad signature is bad. Streams the
/// package. Throws ToolError when it cannot check: a file unreadable, a key of another size.
Verdict verifyPackageFile(const std::string& package, const std::string& signature, EVP_PKEY* key);

}  // namespace helion::tools
