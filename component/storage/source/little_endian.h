#pragma once

#include <cstdint>

namespace storage::detail {

inline std::uint64_t LoadLittleEndian64(const std::uint8_t* bytes) {
    std::uint64_t value = 0;
    for (int index = 7; index >= 0; --index) {
        value = (value << 8) | bytes[index];
    }
    return value;
}

inline void StoreLittleEndian64(std::uint64_t value, std::uint8_t* bytes) {
    for (int index = 0; index < 8; ++index) {
        bytes[index] = static_cast<std::uint8_t>(value >> (8 * index));
    }
}

}  // namespace storage::detail
