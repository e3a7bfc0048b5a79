#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <openssl/types.h>

namespace integrity_check_tool::openssl {

// One running OpenSSL message digest: initialise, update per block, final.
// OpenSSL failures raise Exception naming the algorithm and OpenSSL's reason.
class Digest {
public:
    // `engine` is the engine that provides `algorithm`, or null.
    Digest(const EVP_MD* algorithm, ENGINE* engine);
    ~Digest();
    Digest(const Digest&) = delete;
    Digest& operator=(const Digest&) = delete;

    void Update(const void* data, std::size_t size);
    // The digest of everything given so far; the digest cannot be updated after.
    std::vector<std::uint8_t> Final();

private:
    const EVP_MD* algorithm_;
    EVP_MD_CTX* context_;
};

// OpenSSL's queued error text ("unknown" when the queue is empty); empties the queue.
std::string TakeOpenSslError();

}  // namespace integrity_check_tool::openssl
