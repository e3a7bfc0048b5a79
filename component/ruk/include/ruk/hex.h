#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace ruk {

enum class HexCase { Lower, Upper };

// Two hexadecimal digits per byte, in byte order, no separators.
std::string HexText(const std::uint8_t* bytes, std::size_t size, HexCase letters);

}  // namespace ruk
