#pragma once

#include <boost/filesystem/path.hpp>

namespace integrity_check_tool::platform {

// A form of `path` under which two names of one file are equal as far as the
// file system goes: on Windows names ignore letter case, here they do not.
boost::filesystem::path::string_type FileNameKey(const boost::filesystem::path& path);

}  // namespace integrity_check_tool::platform
