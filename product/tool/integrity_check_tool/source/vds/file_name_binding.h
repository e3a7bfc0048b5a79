#pragma once

#include <cstdint>
#include <vector>

#include <boost/filesystem/path.hpp>

namespace integrity_check_tool::vds {

// The additional content that binds a signature to a file name: the name as
// it stands in the path (after the last "\" or "/", or after a leading
// drive letter and colon when there is no separator; no case change) in
// UTF-16LE code units, with one terminating zero unit.
std::vector<std::uint8_t> FileNameBindingContent(const boost::filesystem::path& path);

}  // namespace integrity_check_tool::vds
