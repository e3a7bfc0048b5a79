#pragma once

#include <cstdint>
#include <string>

#include <boost/filesystem/path.hpp>

#include "ruk/io.h"

// The runtime's own seam to the operating system.
namespace ruk::platform {

std::string GetOsErrorText(std::uint32_t osError);

result_t OpenFile(const boost::filesystem::path& path, OpenMode mode, intrusive_ptr<IIO>* io);

// The system errors that mean "nothing there" and "a folder".
bool IsMissingError(std::uint32_t osError);
bool IsFolderError(std::uint32_t osError);

}  // namespace ruk::platform
