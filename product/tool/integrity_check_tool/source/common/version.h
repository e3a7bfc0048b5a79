#pragma once

#include <string>

namespace integrity_check_tool {

// The product version of the running program, read once on first use and
// kept for the rest of the process. Throws Exception when it cannot be read.
const std::string& GetProductVersion();

}  // namespace integrity_check_tool
