#pragma once
// Builds real portal packages inside the tests: zip archives through minizip's writer and
// detached signatures through OpenSSL, with the development key or any other.

#include <openssl/evp.h>

#include <string>
#include <vector>

#include "common/OpenSslPtr.h"

namespace helion::test {

struct ZipEntry {
    std::string name;
    std::string data;
    bool deflate = true;
    /// Encrypts the entry when set.
    const char* password = nullptr;
    /// When set, data is the entry's deflate stream as it stands, said to inflate to this size.
    std::size_t rawSize = 0;
};

/// data deflated without a final block: whatever is appended is read as the stream's next block.
std::string deflateOpenEnded(const std::string& data);

/// Writes entries, in order, as a new archive at path.
void writeZip(const std::string& path, const std::vector<ZipEntry>& entries);

using Pkey = corvid::openssl::PkeyPtr;

/// The development private key whose public half the test module is built with.
Pkey devPrivateKey();
/// A fresh RSA-2048 key the module does not know.
Pkey otherPrivateKey();

/// A raw signature of data: PKCS#1 v1.5 unless pss, over the digest md.
std::string sign(const std::string& data, EVP_PKEY* key, const EVP_MD* md = EVP_sha256(),
                 bool pss = false);

}  // namespace helion::test
