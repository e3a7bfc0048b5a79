#pragma once

#include <string>

namespace integrity_check_tool {

// The one UTF-8 to UTF-16 conversion of the programs. Returns false, leaving
// `units` unspecified, when `text` is not valid UTF-8 (a stray or missing
// continuation byte, an overlong form, an encoded surrogate, a value above
// U+10FFFF): a name that cannot be converted exactly must not be signed or
// checked under some other name.
bool Utf8ToUtf16(const std::string& text, std::u16string* units);

}  // namespace integrity_check_tool
