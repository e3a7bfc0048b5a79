#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

// The content of a signature catalog: a list of object digests, signed like
// any other object (README.md describes it byte by byte).
namespace vds::format {

constexpr std::array<std::uint8_t, 8> kCatalogMagic = {'V', 'D', 'S', 'C', 'A', 'T', 0x0D, 0x0A};
constexpr std::uint32_t kCatalogVersion = 1;
constexpr std::size_t kMaxCatalogAlgorithmName = 32;
// Catalog content larger than this is refused before it is read.
constexpr std::uint64_t kMaxCatalogSize = 64ull * 1024 * 1024;

}  // namespace vds::format
