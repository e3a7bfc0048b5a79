#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <openssl/evp.h>

#include "vds/pe_format.h"
#include "vds/vds_types.h"

namespace vds::core {

// Bounded reads through the caller's callback: nothing outside the object
// is ever requested.
class ObjectReader {
public:
    explicit ObjectReader(const VdsReadCallback& callback) : callback_(callback) {}

    std::uint64_t Size() const { return callback_.objectSize; }
    // Exactly `size` bytes at `offset`; vdsErrCallbackRead when the callback
    // fails or delivers less, vdsErrInvalidArgument for a range outside the object.
    VdsResult ReadExact(std::uint64_t offset, void* buffer, std::size_t size) const;
    // Digests of the first `size` bytes with each algorithm, in one pass.
    VdsResult Digest(std::uint64_t size, const std::vector<const EVP_MD*>& algorithms,
                     std::vector<std::vector<std::uint8_t>>* digests) const;
    // Digests of the ranges, one after another, with each algorithm.
    VdsResult Digest(const std::vector<format::ByteRange>& ranges,
                     const std::vector<const EVP_MD*>& algorithms,
                     std::vector<std::vector<std::uint8_t>>* digests) const;

private:
    VdsReadCallback callback_;
};

// One digest of a byte range in memory.
bool DigestBytes(const EVP_MD* algorithm, const std::uint8_t* data, std::size_t size,
                 std::vector<std::uint8_t>* digest);

// The digest algorithms a signature may use: GOST R 34.11-2012 (256, 512)
// and SHA-256 and up. Null for anything else.
const EVP_MD* AcceptedDigest(int nid);

}  // namespace vds::core
