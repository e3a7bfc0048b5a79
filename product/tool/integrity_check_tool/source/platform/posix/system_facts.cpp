#include <sys/utsname.h>

#include <cerrno>
#include <cstdlib>

#include "platform/posix/uname_facts.h"
#include "platform/system_facts.h"

namespace integrity_check_tool::platform {

std::uint32_t ArchCodeFromMachine(const std::string& machine) {
    if (machine == "x86_64" || machine == "amd64") {
        return kArchX86_64;
    }
    if (machine == "i386" || machine == "i486" || machine == "i586" || machine == "i686") {
        return kArchX86;
    }
    if (machine == "aarch64" || machine == "arm64") {
        return kArchARM64;
    }
    // armv7l, armv7hl, armv6l, ...
    if (machine.compare(0, 3, "arm") == 0) {
        return kArchARM32;
    }
    if (machine == "ia64") {
        return kArchIA64;
    }
    // Elbrus kernels run in 64-bit mode; the 32-bit mode has no kernel of its own.
    if (machine == "e2k") {
        return kArchE2K64;
    }
    return kArchUnknown;
}

void ParseKernelRelease(const std::string& release, SystemFacts& facts) {
    std::uint32_t* parts[] = {&facts.majorVersion, &facts.minorVersion, &facts.buildNumber};
    const char* cursor = release.c_str();
    for (std::uint32_t* part : parts) {
        char* end = nullptr;
        const unsigned long value = std::strtoul(cursor, &end, 10);
        if (end == cursor || *cursor < '0' || *cursor > '9') {
            return;
        }
        *part = static_cast<std::uint32_t>(value);
        if (*end != '.') {
            return;
        }
        cursor = end + 1;
    }
}

std::uint32_t PlatformFromSystemName(const std::string& systemName) {
    return systemName == "Darwin" ? kPlatformMacOS : kPlatformLinux;
}

ruk::result_t QuerySystemFacts(SystemFacts* facts) {
    if (facts == nullptr) {
        return ruk::result::InvalidArgument;
    }
    struct utsname names {};
    if (::uname(&names) != 0) {
        return ruk::MakeOsResult(static_cast<std::uint32_t>(errno));
    }
    SystemFacts result;
    result.platform = PlatformFromSystemName(names.sysname);
    ParseKernelRelease(names.release, result);
    result.archCode = ArchCodeFromMachine(names.machine);
    // No edition split here: every system counts as a desktop.
    result.isServer = false;
    *facts = result;
    return ruk::result::Success;
}

}  // namespace integrity_check_tool::platform
