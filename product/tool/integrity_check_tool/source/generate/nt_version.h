#pragma once

#include <cstdint>
#include <string>

namespace integrity_check_tool::generate {

// The Windows NT version a manifest is generated for, in the filters' form
// (major times 100 plus minor): "10.0" and "1000" both give 1000, "6.1" gives
// 601; a "0x" prefix reads hexadecimal. Throws Exception "Invalid version %1%"
// for anything else.
std::uint32_t ParseNtVersion(const std::string& text);

}  // namespace integrity_check_tool::generate
