#include "signature_format.h"

#include <algorithm>
#include <cstring>

namespace dsvm::detail::format {
namespace {

std::uint16_t LoadU16(const std::uint8_t* bytes) {
    return static_cast<std::uint16_t>(bytes[0] | (bytes[1] << 8));
}

std::uint32_t LoadU32(const std::uint8_t* bytes) {
    return static_cast<std::uint32_t>(bytes[0]) | (static_cast<std::uint32_t>(bytes[1]) << 8) |
           (static_cast<std::uint32_t>(bytes[2]) << 16) |
           (static_cast<std::uint32_t>(bytes[3]) << 24);
}

void StoreU16(std::uint16_t value, Bytes* out) {
    out->push_back(static_cast<std::uint8_t>(value & 0xFF));
    out->push_back(static_cast<std::uint8_t>(value >> 8));
}

void StoreU32(std::uint32_t value, Bytes* out) {
    for (int shift = 0; shift < 32; shift += 8) {
        out->push_back(static_cast<std::uint8_t>((value >> shift) & 0xFF));
    }
}

// Block header offsets.
constexpr std::size_t kDigestAlgorithmOffset = 0;
constexpr std::size_t kKeyAlgorithmOffset = 2;
constexpr std::size_t kKeyIdOffset = 4;
constexpr std::size_t kSignatureSizeOffset = 36;
constexpr std::size_t kReservedOffset = 38;

// Trailer offsets.
constexpr std::size_t kBlockSizeOffset = 8;
constexpr std::size_t kVersionOffset = 12;

}  // namespace

bool HasTrailerMagic(const std::uint8_t* trailer) {
    return std::memcmp(trailer, kTrailerMagic, sizeof(kTrailerMagic)) == 0;
}

DsvmResult ParseTrailer(const std::uint8_t* trailer, Trailer* parsed) {
    if (!HasTrailerMagic(trailer)) {
        return DSVM_E_SIGNATURE_NOT_FOUND;
    }
    Trailer result;
    result.blockSize = LoadU32(trailer + kBlockSizeOffset);
    result.version = LoadU32(trailer + kVersionOffset);
    if (result.version != kFormatVersion) {
        return DSVM_E_TYPE_MISMATCH;
    }
    if (result.blockSize < kMinBlockSize || result.blockSize > kMaxBlockSize) {
        return DSVM_E_INCOMPLETE_SIGNATURE;
    }
    *parsed = result;
    return DSVM_OK;
}

DsvmResult ParseBlock(const std::uint8_t* block, std::size_t size, Block* parsed) {
    if (size < kBlockHeaderSize) {
        return DSVM_E_INCOMPLETE_SIGNATURE;
    }
    Block result;
    result.digestAlgorithm = LoadU16(block + kDigestAlgorithmOffset);
    if (result.digestAlgorithm != kDigestGost2012_256) {
        return DSVM_E_TYPE_MISMATCH;
    }
    const std::uint16_t keyAlgorithm = LoadU16(block + kKeyAlgorithmOffset);
    if (keyAlgorithm != static_cast<std::uint16_t>(KeyAlgorithm::Gost2012_256) &&
        keyAlgorithm != static_cast<std::uint16_t>(KeyAlgorithm::Gost2012_512)) {
        return DSVM_E_TYPE_MISMATCH;
    }
    result.keyAlgorithm = static_cast<KeyAlgorithm>(keyAlgorithm);
    std::copy_n(block + kKeyIdOffset, result.keyId.size(), result.keyId.begin());
    const std::size_t signatureSize = LoadU16(block + kSignatureSizeOffset);
    if (LoadU16(block + kReservedOffset) != 0 ||
        signatureSize != SignatureSizeOf(result.keyAlgorithm) ||
        size - kBlockHeaderSize != signatureSize) {
        return DSVM_E_INCOMPLETE_SIGNATURE;
    }
    result.signature.assign(block + kBlockHeaderSize, block + size);
    *parsed = std::move(result);
    return DSVM_OK;
}

Bytes Serialize(const Block& block) {
    Bytes out;
    out.reserve(kBlockHeaderSize + block.signature.size() + kTrailerSize);
    StoreU16(block.digestAlgorithm, &out);
    StoreU16(static_cast<std::uint16_t>(block.keyAlgorithm), &out);
    out.insert(out.end(), block.keyId.begin(), block.keyId.end());
    StoreU16(static_cast<std::uint16_t>(block.signature.size()), &out);
    StoreU16(0, &out);
    out.insert(out.end(), block.signature.begin(), block.signature.end());
    const auto blockSize = static_cast<std::uint32_t>(out.size());
    out.insert(out.end(), std::begin(kTrailerMagic), std::end(kTrailerMagic));
    StoreU32(blockSize, &out);
    StoreU32(kFormatVersion, &out);
    return out;
}

}  // namespace dsvm::detail::format
