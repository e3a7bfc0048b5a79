#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "dsvm/dsvm.h"

// OpenSSL types, declared here so that users of this header need no OpenSSL.
typedef struct evp_pkey_st EVP_PKEY;
typedef struct evp_md_ctx_st EVP_MD_CTX;

namespace dsvm::detail {

using Digest = std::array<std::uint8_t, DSVM_HASH_SIZE>;
using Bytes = std::vector<std::uint8_t>;

// GOST R 34.11-2012 (256-bit) through the engine, fed piece by piece.
class Streebog256 {
public:
    Streebog256();
    ~Streebog256();
    Streebog256(const Streebog256&) = delete;
    Streebog256& operator=(const Streebog256&) = delete;

    // DSVM_OK, or DSVM_E_CRYPTO when the engine's digest could not be set up.
    DsvmResult Start();
    DsvmResult Update(const void* data, std::size_t size);
    // Writes the digest and leaves the context to be started again.
    DsvmResult Finish(Digest* digest);

private:
    EVP_MD_CTX* context_;
    bool started_ = false;
};

DsvmResult DigestOf(const void* data, std::size_t size, Digest* digest);

// Signature algorithm identifiers of the block format.
enum class KeyAlgorithm : std::uint16_t { Gost2012_256 = 1, Gost2012_512 = 2 };

// Size in bytes of a signature made with a key of the given algorithm.
std::size_t SignatureSizeOf(KeyAlgorithm algorithm);

struct PkeyDeleter {
    void operator()(EVP_PKEY* key) const;
};
using PkeyPtr = std::shared_ptr<EVP_PKEY>;

// A GOST R 34.10-2012 key as the library keeps it: the OpenSSL key, its
// algorithm and the identifier signature blocks use for it.
struct Key {
    PkeyPtr pkey;
    KeyAlgorithm algorithm = KeyAlgorithm::Gost2012_256;
    Digest id{};
};

// A DER SubjectPublicKeyInfo with nothing after it; DSVM_E_INVALID_PARAMETER
// for anything else, including keys of other algorithms.
DsvmResult LoadPublicKey(const void* blob, std::size_t size, Key* key);
// A PEM private key ("PRIVATE KEY"); the identifier is that of its public part.
DsvmResult LoadPrivateKey(const char* pem, std::size_t size, Key* key);

// DSVM_OK, DSVM_E_INVALID_SIGNATURE, or DSVM_E_CRYPTO when OpenSSL could not
// even start the check.
DsvmResult VerifyDigest(const Key& key, const Digest& digest, const std::uint8_t* signature,
                        std::size_t signatureSize);
DsvmResult SignDigest(const Key& key, const Digest& digest, Bytes* signature);

}  // namespace dsvm::detail
