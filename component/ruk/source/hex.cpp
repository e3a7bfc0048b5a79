#include "ruk/hex.h"

namespace ruk {

std::string HexText(const std::uint8_t* bytes, std::size_t size, HexCase letters) {
    const char* digits = letters == HexCase::Lower ? "0123456789abcdef" : "0123456789ABCDEF";
    std::string text;
    text.reserve(size * 2);
    for (std::size_t index = 0; index < size; ++index) {
        text += digits[bytes[index] >> 4];
        text += digits[bytes[index] & 0x0F];
    }
    return text;
}

}  // namespace ruk
