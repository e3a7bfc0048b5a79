#define OPENSSL_SUPPRESS_DEPRECATED

#include "crypto.h"

#include <climits>

#include <openssl/bio.h>
#include <openssl/engine.h>
#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/obj_mac.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include "library_state.h"

namespace dsvm::detail {
namespace {

struct PkeyContextDeleter {
    void operator()(EVP_PKEY_CTX* context) const { EVP_PKEY_CTX_free(context); }
};
using PkeyContextPtr = std::unique_ptr<EVP_PKEY_CTX, PkeyContextDeleter>;

struct BioDeleter {
    void operator()(BIO* bio) const { BIO_free(bio); }
};

// OpenSSL keeps a per-thread error queue; a failed call must not leave stale
// entries behind for an unrelated caller to trip over.
DsvmResult Fail(DsvmResult result) {
    ERR_clear_error();
    return result;
}

bool AlgorithmOf(const EVP_PKEY* pkey, KeyAlgorithm* algorithm) {
    switch (EVP_PKEY_get_base_id(pkey)) {
        case NID_id_GostR3410_2012_256:
            *algorithm = KeyAlgorithm::Gost2012_256;
            return true;
        case NID_id_GostR3410_2012_512:
            *algorithm = KeyAlgorithm::Gost2012_512;
            return true;
        default:
            return false;
    }
}

DsvmResult Adopt(EVP_PKEY* raw, Key* key) {
    PkeyPtr pkey(raw, PkeyDeleter());
    KeyAlgorithm algorithm;
    if (!AlgorithmOf(pkey.get(), &algorithm)) {
        return Fail(DSVM_E_INVALID_PARAMETER);
    }
    unsigned char* der = nullptr;
    const int derSize = i2d_PUBKEY(pkey.get(), &der);
    if (derSize <= 0) {
        return Fail(DSVM_E_CRYPTO);
    }
    Digest id;
    const DsvmResult digested = DigestOf(der, static_cast<std::size_t>(derSize), &id);
    OPENSSL_free(der);
    if (digested != DSVM_OK) {
        return digested;
    }
    key->pkey = std::move(pkey);
    key->algorithm = algorithm;
    key->id = id;
    return DSVM_OK;
}

PkeyContextPtr NewContext(const Key& key) {
    return PkeyContextPtr(EVP_PKEY_CTX_new(key.pkey.get(), GetGostEngine()));
}

}  // namespace

Streebog256::Streebog256() : context_(EVP_MD_CTX_new()) {}

Streebog256::~Streebog256() {
    EVP_MD_CTX_free(context_);
}

DsvmResult Streebog256::Start() {
    ENGINE* engine = GetGostEngine();
    const EVP_MD* md =
        engine == nullptr ? nullptr : ENGINE_get_digest(engine, NID_id_GostR3411_2012_256);
    if (context_ == nullptr || md == nullptr || EVP_DigestInit_ex(context_, md, engine) != 1) {
        started_ = false;
        return Fail(DSVM_E_CRYPTO);
    }
    started_ = true;
    return DSVM_OK;
}

DsvmResult Streebog256::Update(const void* data, std::size_t size) {
    if (!started_) {
        const DsvmResult started = Start();
        if (started != DSVM_OK) {
            return started;
        }
    }
    if (size != 0 && EVP_DigestUpdate(context_, data, size) != 1) {
        return Fail(DSVM_E_CRYPTO);
    }
    return DSVM_OK;
}

DsvmResult Streebog256::Finish(Digest* digest) {
    const DsvmResult updated = Update(nullptr, 0);
    if (updated != DSVM_OK) {
        return updated;
    }
    unsigned int size = 0;
    started_ = false;
    if (EVP_DigestFinal_ex(context_, digest->data(), &size) != 1 || size != digest->size()) {
        return Fail(DSVM_E_CRYPTO);
    }
    return DSVM_OK;
}

DsvmResult DigestOf(const void* data, std::size_t size, Digest* digest) {
    Streebog256 hash;
    const DsvmResult updated = hash.Update(data, size);
    return updated != DSVM_OK ? updated : hash.Finish(digest);
}

std::size_t SignatureSizeOf(KeyAlgorithm algorithm) {
    return algorithm == KeyAlgorithm::Gost2012_512 ? 128 : 64;
}

void PkeyDeleter::operator()(EVP_PKEY* key) const {
    EVP_PKEY_free(key);
}

DsvmResult LoadPublicKey(const void* blob, std::size_t size, Key* key) {
    if (blob == nullptr || size == 0 || size > LONG_MAX) {
        return DSVM_E_INVALID_PARAMETER;
    }
    const auto* cursor = static_cast<const unsigned char*>(blob);
    EVP_PKEY* raw = d2i_PUBKEY(nullptr, &cursor, static_cast<long>(size));
    if (raw == nullptr) {
        return Fail(DSVM_E_INVALID_PARAMETER);
    }
    // Trailing bytes would give one key two identifiers.
    if (cursor != static_cast<const unsigned char*>(blob) + size) {
        EVP_PKEY_free(raw);
        return Fail(DSVM_E_INVALID_PARAMETER);
    }
    return Adopt(raw, key);
}

DsvmResult LoadPrivateKey(const char* pem, std::size_t size, Key* key) {
    if (pem == nullptr || size == 0 || size > INT_MAX) {
        return DSVM_E_INVALID_PARAMETER;
    }
    std::unique_ptr<BIO, BioDeleter> bio(BIO_new_mem_buf(pem, static_cast<int>(size)));
    if (!bio) {
        return Fail(DSVM_E_OUT_OF_MEMORY);
    }
    EVP_PKEY* raw = PEM_read_bio_PrivateKey(bio.get(), nullptr, nullptr, nullptr);
    if (raw == nullptr) {
        return Fail(DSVM_E_INVALID_PARAMETER);
    }
    return Adopt(raw, key);
}

DsvmResult VerifyDigest(const Key& key, const Digest& digest, const std::uint8_t* signature,
                        std::size_t signatureSize) {
    PkeyContextPtr context = NewContext(key);
    if (!context || EVP_PKEY_verify_init(context.get()) != 1) {
        return Fail(DSVM_E_CRYPTO);
    }
    // Any answer but "verified" is a bad signature: the engine reports a
    // malformed r or s as an error rather than as a mismatch.
    const int verified =
        EVP_PKEY_verify(context.get(), signature, signatureSize, digest.data(), digest.size());
    return verified == 1 ? DSVM_OK : Fail(DSVM_E_INVALID_SIGNATURE);
}

DsvmResult SignDigest(const Key& key, const Digest& digest, Bytes* signature) {
    PkeyContextPtr context = NewContext(key);
    if (!context || EVP_PKEY_sign_init(context.get()) != 1) {
        return Fail(DSVM_E_SIGNING_CRYPTO);
    }
    std::size_t size = 0;
    if (EVP_PKEY_sign(context.get(), nullptr, &size, digest.data(), digest.size()) != 1) {
        return Fail(DSVM_E_SIGNING_CRYPTO);
    }
    signature->resize(size);
    if (EVP_PKEY_sign(context.get(), signature->data(), &size, digest.data(), digest.size()) != 1 ||
        size != SignatureSizeOf(key.algorithm)) {
        return Fail(DSVM_E_SIGNING_CRYPTO);
    }
    signature->resize(size);
    return DSVM_OK;
}

}  // namespace dsvm::detail
