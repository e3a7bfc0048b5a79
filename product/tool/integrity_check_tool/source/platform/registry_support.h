#pragma once

namespace integrity_check_tool::platform {

// True where the system has a registry whose values can be read.
bool IsRegistryAvailable();

}  // namespace integrity_check_tool::platform
