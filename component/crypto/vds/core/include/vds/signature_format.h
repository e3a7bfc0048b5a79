#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

// The appended-signature layout: content, DER CMS SignedData, trailer.
// README.md beside this component describes it byte by byte.
namespace vds::format {

constexpr std::array<std::uint8_t, 8> kTrailerMagic = {'V', 'D', 'S', 'S', 'I', 'G', 0x0D, 0x0A};
constexpr std::size_t kTrailerSize = 16;
constexpr std::uint32_t kTrailerVersion = 1;
// A signature (certificates included) never needs more; a larger size field
// is corrupt.
constexpr std::uint32_t kMaxSignatureSize = 1024 * 1024;

// The digest of the file name is carried in this signed attribute (an OCTET
// STRING): 1.3.6.1.4.1.59999.10.3.1.
constexpr const char* kFileNameAttributeOid = "1.3.6.1.4.1.59999.10.3.1";

enum class TrailerStatus {
    Absent,     // the object does not end with the magic: unsigned
    Malformed,  // magic present, but version or size impossible
    Present,
};

struct SignatureLocation {
    std::uint64_t contentSize = 0;    // offset of the CMS block
    std::uint32_t signatureSize = 0;  // size of the CMS block
};

// Reads the last kTrailerSize bytes of an object of `objectSize` bytes.
TrailerStatus ParseTrailer(const std::uint8_t* trailer, std::uint64_t objectSize,
                           SignatureLocation* location);

std::array<std::uint8_t, kTrailerSize> MakeTrailer(std::uint32_t signatureSize);

}  // namespace vds::format
