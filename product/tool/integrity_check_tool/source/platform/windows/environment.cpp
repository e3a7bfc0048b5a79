#include <windows.h>

#include <vector>

#include "platform/environment.h"

namespace integrity_check_tool::platform {

ruk::result_t LookupProcessVariable(const std::string& name, boost::optional<std::string>* value) {
    if (value == nullptr) {
        return ruk::result::InvalidArgument;
    }
    value->reset();
    const std::string placeholder = "%" + name + "%";
    std::vector<char> buffer(placeholder.size() + 1);
    for (;;) {
        const DWORD required = ::ExpandEnvironmentStringsA(placeholder.c_str(), buffer.data(),
                                                           static_cast<DWORD>(buffer.size()));
        if (required == 0) {
            return ruk::MakeOsResult(::GetLastError());
        }
        if (required <= buffer.size()) {
            // The count includes the terminating zero.
            std::string expanded(buffer.data(), required - 1);
            // The system leaves a placeholder of an unset variable as it is.
            if (expanded != placeholder) {
                *value = std::move(expanded);
            }
            return ruk::result::Success;
        }
        buffer.resize(required);
    }
}

}  // namespace integrity_check_tool::platform
