#include "platform/registry_support.h"

namespace integrity_check_tool::platform {

bool IsRegistryAvailable() {
    return true;
}

}  // namespace integrity_check_tool::platform
