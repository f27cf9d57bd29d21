#pragma once
// The detached package signature: raw RSASSA-PKCS1-v1_5 over SHA-256 of the whole package file.

#include <openssl/evp.h>

#include <string>

namespace helion::tools {

/// The 256-byte signature of data. Throws ToolError unless key is an RSA-2048 private key.
std::string signPackage(const std::string& data, EVP_PKEY* key);

struct Verdict {
    bool valid = false;
    /// Why not, when not valid.
    std::string reason;
};

/// The module's own check: the signature's first 256 bytes against SHA-256 of data; a shorter
/// signature fails, a longer one is judged on its first 256 bytes.
Verdict verifyPackage(const std::string& data, const std::string& signature, EVP_PKEY* key);

}  // namespace helion::tools
