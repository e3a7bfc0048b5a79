#pragma once

#include <cstddef>
#include <cstdint>
#include <random>
#include <vector>

namespace ict_test {

// Makes damaged copies of a signed object, repeatably from a seed: most
// changes land in the signature part [signatureStart, size), a few in the
// content before it. The kinds: a flipped bit, a random byte, a byte set to
// a value that matters to DER (tags, length forms, 0x00, 0xFF), a letter's
// case flipped, several bytes at once, and a byte inserted or removed inside
// the signature with the trailer's size field moved along (`sizeField`: the
// offset from the end of the little-endian 32-bit size, 0 for none), so that
// the reader still finds a whole block.
class Mutator {
public:
    Mutator(std::uint32_t seed, std::vector<std::uint8_t> original, std::size_t signatureStart,
            std::size_t sizeField)
        : random_(seed),
          original_(std::move(original)),
          start_(signatureStart),
          sizeField_(sizeField) {}

    // A mutant that differs from the original.
    std::vector<std::uint8_t> Next();

private:
    std::size_t Position(bool inSignature);
    void Resize(std::vector<std::uint8_t>& bytes, int delta) const;

    std::mt19937 random_;
    std::vector<std::uint8_t> original_;
    std::size_t start_;
    std::size_t sizeField_;
};

}  // namespace ict_test
