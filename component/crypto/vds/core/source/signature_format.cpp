#include "vds/signature_format.h"

#include <algorithm>

namespace vds::format {
namespace {

std::uint32_t LoadLittleEndian32(const std::uint8_t* bytes) {
    return static_cast<std::uint32_t>(bytes[0]) | static_cast<std::uint32_t>(bytes[1]) << 8 |
           static_cast<std::uint32_t>(bytes[2]) << 16 | static_cast<std::uint32_t>(bytes[3]) << 24;
}

void StoreLittleEndian32(std::uint32_t value, std::uint8_t* bytes) {
    for (int index = 0; index < 4; ++index) {
        bytes[index] = static_cast<std::uint8_t>(value >> (8 * index));
    }
}

}  // namespace

TrailerStatus ParseTrailer(const std::uint8_t* trailer, std::uint64_t objectSize,
                           SignatureLocation* location) {
    if (trailer == nullptr || objectSize < kTrailerSize ||
        !std::equal(kTrailerMagic.begin(), kTrailerMagic.end(), trailer)) {
        return TrailerStatus::Absent;
    }
    const std::uint32_t signatureSize = LoadLittleEndian32(trailer + 8);
    const std::uint32_t version = LoadLittleEndian32(trailer + 12);
    if (version != kTrailerVersion || signatureSize == 0 || signatureSize > kMaxSignatureSize ||
        signatureSize > objectSize - kTrailerSize) {
        return TrailerStatus::Malformed;
    }
    if (location != nullptr) {
        location->signatureSize = signatureSize;
        location->contentSize = objectSize - kTrailerSize - signatureSize;
    }
    return TrailerStatus::Present;
}

std::array<std::uint8_t, kTrailerSize> MakeTrailer(std::uint32_t signatureSize) {
    std::array<std::uint8_t, kTrailerSize> trailer{};
    std::copy(kTrailerMagic.begin(), kTrailerMagic.end(), trailer.begin());
    StoreLittleEndian32(signatureSize, trailer.data() + 8);
    StoreLittleEndian32(kTrailerVersion, trailer.data() + 12);
    return trailer;
}

}  // namespace vds::format
