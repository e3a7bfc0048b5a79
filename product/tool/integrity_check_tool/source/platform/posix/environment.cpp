#include <cstdlib>

#include "platform/environment.h"

namespace integrity_check_tool::platform {

ruk::result_t LookupProcessVariable(const std::string& name, boost::optional<std::string>* value) {
    if (value == nullptr) {
        return ruk::result::InvalidArgument;
    }
    value->reset();
    // A name with '=' can never be set and would match a prefix of another entry.
    if (name.find('=') != std::string::npos) {
        return ruk::result::Success;
    }
    if (const char* found = std::getenv(name.c_str())) {
        *value = std::string(found);
    }
    return ruk::result::Success;
}

}  // namespace integrity_check_tool::platform
