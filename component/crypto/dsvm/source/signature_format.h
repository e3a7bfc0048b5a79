#pragma once

#include <cstddef>
#include <cstdint>

#include "crypto.h"
#include "dsvm/dsvm.h"

// The byte layout of a sign-in-object signature (see the README): pure byte
// work, no reading and no cryptography, so that it can be fuzzed on its own.
namespace dsvm::detail::format {

constexpr std::size_t kTrailerSize = 16;
constexpr std::uint8_t kTrailerMagic[8] = {'D', 'S', 'V', 'M', '2', 'S', 'I', 'G'};
constexpr std::uint32_t kFormatVersion = 1;

constexpr std::size_t kBlockHeaderSize = 40;
constexpr std::uint16_t kDigestGost2012_256 = 1;
constexpr std::size_t kMinBlockSize = kBlockHeaderSize + 64;
constexpr std::size_t kMaxBlockSize = DSVM_MAX_SIGNATURE_SIZE - kTrailerSize;

struct Trailer {
    std::uint32_t blockSize = 0;
    std::uint32_t version = 0;
};

struct Block {
    std::uint16_t digestAlgorithm = kDigestGost2012_256;
    KeyAlgorithm keyAlgorithm = KeyAlgorithm::Gost2012_256;
    Digest keyId{};
    Bytes signature;
};

// True when the kTrailerSize bytes start with the trailer magic.
bool HasTrailerMagic(const std::uint8_t* trailer);

// Reads kTrailerSize bytes. DSVM_E_SIGNATURE_NOT_FOUND without the magic,
// DSVM_E_TYPE_MISMATCH for another format version, DSVM_E_INCOMPLETE_SIGNATURE
// for a block size outside [kMinBlockSize, kMaxBlockSize].
DsvmResult ParseTrailer(const std::uint8_t* trailer, Trailer* parsed);

// Reads a block of `size` bytes (the trailer's block size).
// DSVM_E_TYPE_MISMATCH for an unknown digest or signature algorithm,
// DSVM_E_INCOMPLETE_SIGNATURE when the sizes inside disagree with `size`.
DsvmResult ParseBlock(const std::uint8_t* block, std::size_t size, Block* parsed);

// The block followed by its trailer, as appended to the signed content.
Bytes Serialize(const Block& block);

}  // namespace dsvm::detail::format
