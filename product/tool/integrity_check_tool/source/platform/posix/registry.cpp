#include "platform/registry.h"

#include <cerrno>

namespace integrity_check_tool::platform {

std::uint32_t ReadRegistryValue(PredefinedKey /*root*/, const std::string& /*subKey*/,
                                const std::string& /*valueName*/, std::uint32_t& nativeType,
                                std::vector<std::uint8_t>& data) {
    // There is no registry here: every read fails the same way, so registry
    // checks report it like any other unreadable value.
    nativeType = 0;
    data.clear();
    return ENOTSUP;
}

}  // namespace integrity_check_tool::platform
