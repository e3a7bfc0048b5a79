#pragma once

#include <string>

namespace storage::detail {

// A container name is one plain file name: not empty, not "." or "..", no
// path separator, drive colon or NUL, so it can never leave its directory.
bool IsValidContainerName(const std::string& name);

}  // namespace storage::detail
