#pragma once

#include <cstdint>
#include <string>

#include "platform/system_facts.h"

namespace integrity_check_tool::platform {

// The architecture code for a uname machine name ("x86_64", "aarch64", ...).
std::uint32_t ArchCodeFromMachine(const std::string& machine);

// Fills major, minor and build number from a kernel release such as
// "6.1.0-18-amd64"; missing parts stay 0.
void ParseKernelRelease(const std::string& release, SystemFacts& facts);

// The platform number for a uname system name ("Linux", "Darwin").
std::uint32_t PlatformFromSystemName(const std::string& systemName);

}  // namespace integrity_check_tool::platform
