#include "object_reader.h"

#include <algorithm>

#include <openssl/err.h>
#include <openssl/objects.h>

#include "openssl_handles.h"

namespace vds::core {
namespace {

constexpr std::size_t kBlockSize = 1024 * 1024;

}  // namespace

VdsResult ObjectReader::ReadExact(std::uint64_t offset, void* buffer, std::size_t size) const {
    if (offset > callback_.objectSize || size > callback_.objectSize - offset) {
        return vdsErrInvalidArgument;
    }
    auto* bytes = static_cast<std::uint8_t*>(buffer);
    std::size_t total = 0;
    while (total < size) {
        std::size_t count = 0;
        if (!callback_.read(callback_.context, offset + total, bytes + total, size - total,
                            &count) ||
            count == 0 || count > size - total) {
            return vdsErrCallbackRead;
        }
        total += count;
    }
    return vdsOk;
}

VdsResult ObjectReader::Digest(std::uint64_t size, const std::vector<const EVP_MD*>& algorithms,
                               std::vector<std::vector<std::uint8_t>>* digests) const {
    return Digest({{0, size}}, algorithms, digests);
}

VdsResult ObjectReader::Digest(const std::vector<format::ByteRange>& ranges,
                               const std::vector<const EVP_MD*>& algorithms,
                               std::vector<std::vector<std::uint8_t>>* digests) const {
    std::vector<OpenSslPtr<EVP_MD_CTX>> contexts;
    contexts.reserve(algorithms.size());
    for (const EVP_MD* algorithm : algorithms) {
        // Owned before anything else may throw.
        OpenSslPtr<EVP_MD_CTX> context(EVP_MD_CTX_new());
        if (!context || EVP_DigestInit_ex(context.get(), algorithm, nullptr) != 1) {
            ERR_clear_error();
            return vdsErrCryptoLib;
        }
        contexts.push_back(std::move(context));
    }
    std::uint64_t largest = 0;
    for (const auto& range : ranges) {
        largest = std::max(largest, range.size);
    }
    std::vector<std::uint8_t> block(
        static_cast<std::size_t>(std::min<std::uint64_t>(largest, kBlockSize)));
    for (const auto& range : ranges) {
        for (std::uint64_t done = 0; done < range.size;) {
            const auto chunk =
                static_cast<std::size_t>(std::min<std::uint64_t>(range.size - done, kBlockSize));
            const VdsResult result = ReadExact(range.offset + done, block.data(), chunk);
            if (result != vdsOk) {
                return result;
            }
            for (auto& context : contexts) {
                if (EVP_DigestUpdate(context.get(), block.data(), chunk) != 1) {
                    ERR_clear_error();
                    return vdsErrCryptoLib;
                }
            }
            done += chunk;
        }
    }
    digests->clear();
    for (auto& context : contexts) {
        std::vector<std::uint8_t> digest(EVP_MAX_MD_SIZE);
        unsigned int length = 0;
        if (EVP_DigestFinal_ex(context.get(), digest.data(), &length) != 1) {
            ERR_clear_error();
            return vdsErrCryptoLib;
        }
        digest.resize(length);
        digests->push_back(std::move(digest));
    }
    return vdsOk;
}

bool DigestBytes(const EVP_MD* algorithm, const std::uint8_t* data, std::size_t size,
                 std::vector<std::uint8_t>* digest) {
    digest->assign(EVP_MAX_MD_SIZE, 0);
    unsigned int length = 0;
    if (EVP_Digest(data, size, digest->data(), &length, algorithm, nullptr) != 1) {
        ERR_clear_error();
        return false;
    }
    digest->resize(length);
    return true;
}

const EVP_MD* AcceptedDigest(int nid) {
    switch (nid) {
        case NID_id_GostR3411_2012_256:
        case NID_id_GostR3411_2012_512:
        case NID_sha256:
        case NID_sha384:
        case NID_sha512:
            return EVP_get_digestbynid(nid);
        default:
            return nullptr;
    }
}

}  // namespace vds::core
