#pragma once

#include <cstdint>
#include <string>

namespace integrity_check_tool::vds {

// The names of the set verification flags in bit order, joined with "|";
// "None" for no flag. Bits without a name (0x40, 0x80 and above 0x80000)
// are left out.
std::string VerificationFlagsToText(std::uint32_t flags);

}  // namespace integrity_check_tool::vds
