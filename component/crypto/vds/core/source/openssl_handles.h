#pragma once

#include <memory>

#include <openssl/crypto.h>

#include <openssl/cms.h>
#include <openssl/evp.h>
#include <openssl/pkcs7.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

// Owning pointers for the OpenSSL objects the core uses.
namespace vds::core {

struct OpenSslDeleter {
    void operator()(X509* object) const { X509_free(object); }
    void operator()(X509_CRL* object) const { X509_CRL_free(object); }
    void operator()(X509_STORE* object) const { X509_STORE_free(object); }
    void operator()(X509_STORE_CTX* object) const { X509_STORE_CTX_free(object); }
    void operator()(CMS_ContentInfo* object) const { CMS_ContentInfo_free(object); }
    void operator()(PKCS7* object) const { PKCS7_free(object); }
    void operator()(EVP_MD_CTX* object) const { EVP_MD_CTX_free(object); }
    void operator()(ASN1_OBJECT* object) const { ASN1_OBJECT_free(object); }
    void operator()(ASN1_TIME* object) const { ASN1_TIME_free(object); }
    void operator()(BIGNUM* object) const { BN_free(object); }
    void operator()(BIO* object) const { BIO_free(object); }
    void operator()(EXTENDED_KEY_USAGE* object) const { EXTENDED_KEY_USAGE_free(object); }
    void operator()(AUTHORITY_KEYID* object) const { AUTHORITY_KEYID_free(object); }
    void operator()(STACK_OF(X509) * object) const { sk_X509_pop_free(object, X509_free); }
};

template <typename T>
using OpenSslPtr = std::unique_ptr<T, OpenSslDeleter>;

// Bytes that OpenSSL allocated (the output of an i2d call): owned at once,
// so that a throwing copy cannot leak them.
struct OpenSslFree {
    void operator()(unsigned char* bytes) const { OPENSSL_free(bytes); }
};
using OpenSslBytes = std::unique_ptr<unsigned char, OpenSslFree>;

// Shared ownership of an object whose reference is taken here.
inline std::shared_ptr<X509> ShareCertificate(X509* certificate) {
    X509_up_ref(certificate);
    return std::shared_ptr<X509>(certificate, X509_free);
}

inline std::shared_ptr<X509_CRL> ShareCrl(X509_CRL* crl) {
    X509_CRL_up_ref(crl);
    return std::shared_ptr<X509_CRL>(crl, X509_CRL_free);
}

}  // namespace vds::core
