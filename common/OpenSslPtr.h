#pragma once
// Owning pointers for the OpenSSL objects the module, the tools and the tests hold: each is freed
// by OpenSSL's own function for its type.

#include <openssl/bio.h>
#include <openssl/evp.h>
#include <openssl/x509.h>

#include <memory>

namespace corvid::openssl {

template <auto freeFunction>
struct Free {
    template <typename T>
    void operator()(T* object) const noexcept {
        freeFunction(object);
    }
};

using BioPtr = std::unique_ptr<BIO, Free<&BIO_free>>;
using PkeyPtr = std::unique_ptr<EVP_PKEY, Free<&EVP_PKEY_free>>;
using PkeyCtxPtr = std::unique_ptr<EVP_PKEY_CTX, Free<&EVP_PKEY_CTX_free>>;
using MdCtxPtr = std::unique_ptr<EVP_MD_CTX, Free<&EVP_MD_CTX_free>>;
using X509SigPtr = std::unique_ptr<X509_SIG, Free<&X509_SIG_free>>;

}  // namespace corvid::openssl
