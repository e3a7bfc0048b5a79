#include "platform/registry_support.h"

namespace integrity_check_tool::platform {

bool IsRegistryAvailable() {
    return false;
}

}  // namespace integrity_check_tool::platform
