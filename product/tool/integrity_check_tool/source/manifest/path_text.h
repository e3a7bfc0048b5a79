#pragma once

#include <string>

#include <boost/filesystem/path.hpp>

namespace integrity_check_tool {

// Manifest text is UTF-8 whatever the system's code page; these convert
// between it and the path form of the platform (narrow UTF-8 on POSIX, wide
// on Windows) without going through the process locale.
boost::filesystem::path PathFromUtf8(const std::string& text);
std::string PathToUtf8(const boost::filesystem::path& path);

}  // namespace integrity_check_tool
