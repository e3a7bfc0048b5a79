#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "platform/predefined_key.h"

namespace integrity_check_tool::platform {

// The system error code that means "key or value not found".
constexpr std::uint32_t kRegistryNotFound = 2;

// Reads one registry value of the 32-bit process's view: its native type
// code and its bytes exactly as the narrow query returns them. Returns 0 on
// success, otherwise the system error code of the first failing call; where
// there is no registry the code is the system's "not supported" error.
std::uint32_t ReadRegistryValue(PredefinedKey root, const std::string& subKey,
                                const std::string& valueName, std::uint32_t& nativeType,
                                std::vector<std::uint8_t>& data);

}  // namespace integrity_check_tool::platform
