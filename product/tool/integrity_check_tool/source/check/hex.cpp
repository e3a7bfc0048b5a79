#include "check/hex.h"

namespace integrity_check_tool::check {

std::string ToHex(const std::vector<std::uint8_t>& bytes) {
    static const char kDigits[] = "0123456789abcdef";
    std::string text;
    text.reserve(bytes.size() * 2);
    for (const std::uint8_t byte : bytes) {
        text += kDigits[byte >> 4];
        text += kDigits[byte & 0x0F];
    }
    return text;
}

std::ostream& operator<<(std::ostream& stream, const HexOf& hex) {
    return stream << ToHex(hex.bytes);
}

}  // namespace integrity_check_tool::check
