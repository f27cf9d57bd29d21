#include "portal/PackageKit.h"

#include <minizip/zip.h>
#include <openssl/pem.h>
#include <openssl/rsa.h>
#include <zlib.h>

#include <cstdio>
#include <stdexcept>

namespace helion::test {

void writeZip(const std::string& path, const std::vector<ZipEntry>& entries) {
    zipFile zip = zipOpen64(path.c_str(), APPEND_STATUS_CREATE);
    if (zip == nullptr) {
        throw std::runtime_error("cannot create " + path);
    }
    for (const auto& entry : entries) {
        zip_fileinfo info{};
        const auto crc = crc32(0L, reinterpret_cast<const Bytef*>(entry.data.data()),
                               static_cast<uInt>(entry.data.size()));
        zipOpenNewFileInZip3_64(zip, entry.name.c_str(), &info, nullptr, 0, nullptr, 0, nullptr,
                                entry.deflate ? Z_DEFLATED : 0, Z_DEFAULT_COMPRESSION,
                                entry.rawSize != 0, -MAX_WBITS, DEF_MEM_LEVEL, Z_DEFAULT_STRATEGY,
                                entry.password, crc, 0);
        zipWriteInFileInZip(zip, entry.data.data(), static_cast<unsigned>(entry.data.size()));
        entry.rawSize != 0 ? zipCloseFileInZipRaw64(zip, entry.rawSize, crc)
                           : zipCloseFileInZip(zip);
    }
    zipClose(zip, nullptr);
}

std::string deflateOpenEnded(const std::string& data) {
    z_stream stream{};
    deflateInit2(&stream, Z_DEFAULT_COMPRESSION, Z_DEFLATED, -MAX_WBITS, 8, Z_DEFAULT_STRATEGY);
    std::string out(deflateBound(&stream, data.size()) + 16, '\0');
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(data.data()));
    stream.avail_in = static_cast<uInt>(data.size());
    stream.next_out = reinterpret_cast<Bytef*>(out.data());
    stream.avail_out = static_cast<uInt>(out.size());
    deflate(&stream, Z_SYNC_FLUSH);
    out.resize(stream.total_out);
    deflateEnd(&stream);
    return out;
}

Pkey devPrivateKey() {
    FILE* file = std::fopen(HELION_DEV_PRIVATE_KEY, "r");
    if (file == nullptr) {
        throw std::runtime_error("no development key");
    }
    Pkey key(PEM_read_PrivateKey(file, nullptr, nullptr, nullptr));
    std::fclose(file);
    return key;
}

Pkey otherPrivateKey() {
    return Pkey(EVP_RSA_gen(2048));
}

std::string sign(const std::string& data, EVP_PKEY* key, const EVP_MD* md, bool pss) {
    corvid::openssl::MdCtxPtr ctx(EVP_MD_CTX_new());
    EVP_PKEY_CTX* pctx = nullptr;
    std::size_t length = 0;
    if (EVP_DigestSignInit(ctx.get(), &pctx, md, nullptr, key) != 1 ||
        EVP_PKEY_CTX_set_rsa_padding(pctx, pss ? RSA_PKCS1_PSS_PADDING : RSA_PKCS1_PADDING) != 1 ||
        EVP_DigestSign(ctx.get(), nullptr, &length, nullptr, 0) != 1) {
        throw std::runtime_error("cannot sign");
    }
    std::string signature(length, '\0');
    EVP_DigestSign(ctx.get(), reinterpret_cast<unsigned char*>(signature.data()), &length,
                   reinterpret_cast<const unsigned char*>(data.data()), data.size());
    signature.resize(length);
    return signature;
}

}  // namespace helion::test
