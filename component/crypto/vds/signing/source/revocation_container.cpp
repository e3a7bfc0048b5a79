#include <memory>

#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/pkcs7.h>

#include "vds/signing.h"

namespace vds::signing {
namespace {

std::shared_ptr<X509_CRL> ReadCrl(const boost::filesystem::path& path) {
    std::unique_ptr<BIO, decltype(&BIO_free)> bio(BIO_new_file(path.string().c_str(), "rb"),
                                                  BIO_free);
    if (!bio) {
        ERR_clear_error();
        throw Error("Can't open CRL " + path.string());
    }
    X509_CRL* crl = PEM_read_bio_X509_CRL(bio.get(), nullptr, nullptr, nullptr);
    if (crl == nullptr) {
        // Not PEM: try DER from the start.
        ERR_clear_error();
        BIO_reset(bio.get());
        crl = d2i_X509_CRL_bio(bio.get(), nullptr);
    }
    if (crl == nullptr) {
        ERR_clear_error();
        throw Error("File " + path.string() + " is not a CRL");
    }
    return std::shared_ptr<X509_CRL>(crl, X509_CRL_free);
}

}  // namespace

std::vector<std::uint8_t> MakeRevocationContainer(
    const std::vector<boost::filesystem::path>& crlFiles) {
    std::unique_ptr<PKCS7, decltype(&PKCS7_free)> pkcs7(PKCS7_new(), PKCS7_free);
    if (!pkcs7 || PKCS7_set_type(pkcs7.get(), NID_pkcs7_signed) != 1) {
        throw Error("Can't create the revocation container");
    }
    // Like `openssl crl2pkcs7`: version 1, no digest algorithms, data content
    // type without content, no signer infos.
    pkcs7->d.sign->contents->type = OBJ_nid2obj(NID_pkcs7_data);
    for (const auto& file : crlFiles) {
        const auto crl = ReadCrl(file);
        if (PKCS7_add_crl(pkcs7.get(), crl.get()) != 1) {  // takes its own reference
            throw Error("Can't add CRL " + file.string());
        }
    }
    unsigned char* der = nullptr;
    const int length = i2d_PKCS7(pkcs7.get(), &der);
    if (length <= 0) {
        ERR_clear_error();
        throw Error("Can't encode the revocation container");
    }
    std::vector<std::uint8_t> bytes(der, der + length);
    OPENSSL_free(der);
    return bytes;
}

}  // namespace vds::signing
