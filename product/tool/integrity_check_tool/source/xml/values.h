#pragma once

#include <cstdint>
#include <string>

#include "manifest/manifest.h"

namespace integrity_check_tool::xml {

// A number attribute: leading blanks skipped, "0x"/"0X" selects hexadecimal,
// text after the number ignored; read as 64 bits and kept as 32. Throws
// Exception "Invalid number: %1%" when no number can be scanned.
std::uint32_t ReadNumber(const std::string& text);

// Standard base64. Trailing '=' padding is dropped before decoding; a
// character outside the alphabet fails with the decoder's own exception.
Bytes DecodeBase64(const std::string& text);
// Padded with '=' to a multiple of four characters.
std::string EncodeBase64(const Bytes& bytes);

}  // namespace integrity_check_tool::xml
