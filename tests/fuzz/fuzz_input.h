#pragma once

// What the harnesses share: files of the source tree they load once, and
// reads from the input that trap on any byte the parser should never ask for.
#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

namespace ict_fuzz {

inline std::vector<std::uint8_t> ReadSourceFile(const std::string& relative) {
    std::ifstream stream(std::string(ICT_SOURCE_DIR) + "/" + relative, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

// Copies `count` bytes at `offset` of the input; traps unless all lie inside it.
inline void CopyInside(const std::uint8_t* data, std::size_t size, std::uint64_t offset,
                       void* buffer, std::size_t count) {
    if (offset > size || count > size - offset) {
        __builtin_trap();
    }
    std::memcpy(buffer, data + offset, count);
}

}  // namespace ict_fuzz
