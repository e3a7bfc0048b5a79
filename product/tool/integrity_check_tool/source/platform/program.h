#pragma once

#include <string>

#include <boost/filesystem/path.hpp>

// Facts about the running program file. Failures throw ruk::ResultException
// carrying the system error.
namespace integrity_check_tool::platform {

// Full path of the running program file.
boost::filesystem::path GetProgramLocation();

// The product version of the running program: the version resource's
// "\StringFileInfo\040904B0\ProductVersion" on Windows, the version compiled
// in elsewhere.
std::string ReadProductVersion();

}  // namespace integrity_check_tool::platform
