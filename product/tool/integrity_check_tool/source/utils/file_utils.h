#pragma once

#include <cstdint>
#include <vector>

#include <boost/filesystem/path.hpp>

namespace integrity_check_tool {

using Bytes = std::vector<std::uint8_t>;

// The whole contents of a regular file. Anything else (missing path,
// directory, FIFO, device, read error) raises Exception
// "Can't read file %1%. Reason: %2%" naming the path and the reason.
Bytes ReadWholeFile(const boost::filesystem::path& path);

}  // namespace integrity_check_tool
