#pragma once

#include <string>
#include <vector>

#include <boost/filesystem/path.hpp>

namespace integrity_check_tool::dsvm {

// The name DSVM is given for a file: the characters after the last "\" or
// "/" (or after a leading drive letter and colon), in UTF-16 with one
// terminating zero. Narrow paths are taken as UTF-8; invalid sequences
// become U+FFFD.
std::vector<char16_t> GetObjectName(const boost::filesystem::path& path);

// UTF-8 to UTF-16, with U+FFFD for each invalid sequence.
std::u16string Utf8ToUtf16(const std::string& text);

}  // namespace integrity_check_tool::dsvm
