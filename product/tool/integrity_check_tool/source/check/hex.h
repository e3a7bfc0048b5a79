#pragma once

#include <cstdint>
#include <ostream>
#include <string>
#include <vector>

namespace integrity_check_tool::check {

// Two lower-case hexadecimal digits per byte, in byte order, no separators:
// the form of every value in messages.
std::string ToHex(const std::vector<std::uint8_t>& bytes);

// The same form, written only when streamed: a trace line that is not
// written never converts its value.
struct HexOf {
    const std::vector<std::uint8_t>& bytes;
};
std::ostream& operator<<(std::ostream& stream, const HexOf& hex);

}  // namespace integrity_check_tool::check
