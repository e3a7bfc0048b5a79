#include "check/hex.h"

#include "ruk/hex.h"

namespace integrity_check_tool::check {

std::string ToHex(const std::vector<std::uint8_t>& bytes) {
    return ruk::HexText(bytes.data(), bytes.size(), ruk::HexCase::Lower);
}

std::ostream& operator<<(std::ostream& stream, const HexOf& hex) {
    return stream << ToHex(hex.bytes);
}

}  // namespace integrity_check_tool::check
