#pragma once

#include <cstdint>

#include "ruk/result.h"

namespace integrity_check_tool::platform {

// Platform numbers of the snapshot: 0 is Windows, 3 is macOS, anything else
// is treated as Linux.
constexpr std::uint32_t kPlatformWindows = 0;
constexpr std::uint32_t kPlatformLinux = 1;
constexpr std::uint32_t kPlatformMacOS = 3;

// Architecture codes of the snapshot, in the order of the tool's own table.
enum ArchCode : std::uint32_t {
    kArchX86 = 0,
    kArchX86_64 = 1,
    kArchIA64 = 2,
    kArchARM32 = 3,
    kArchARM64 = 4,
    kArchE2K32 = 5,
    kArchE2K64 = 6,
    kArchUnknown = 7,
};

// What the running system says about itself.
struct SystemFacts {
    std::uint32_t platform = kPlatformWindows;
    std::uint32_t majorVersion = 0;
    std::uint32_t minorVersion = 0;
    std::uint32_t buildNumber = 0;
    std::uint16_t servicePackMajor = 0;
    std::uint32_t updateBuildRevision = 0;  // 0 when the system does not say
    std::uint32_t archCode = kArchUnknown;
    bool isServer = false;
    std::uint32_t productType = 0;  // 0 when the system does not say
};

// Asks the system. A failure leaves `facts` unspecified and returns the
// framework's result code (the system error where there is one).
ruk::result_t QuerySystemFacts(SystemFacts* facts);

}  // namespace integrity_check_tool::platform
