#include <windows.h>

#include "platform/registry.h"

namespace integrity_check_tool::platform {
namespace {

HKEY ToHandle(PredefinedKey root) {
    switch (root) {
        case PredefinedKey::ClassesRoot:
            return HKEY_CLASSES_ROOT;
        case PredefinedKey::CurrentConfig:
            return HKEY_CURRENT_CONFIG;
        case PredefinedKey::CurrentUser:
            return HKEY_CURRENT_USER;
        case PredefinedKey::DynData:
            return HKEY_DYN_DATA;
        case PredefinedKey::LocalMachine:
            return HKEY_LOCAL_MACHINE;
        case PredefinedKey::Users:
            return HKEY_USERS;
        case PredefinedKey::PerformanceData:
            return HKEY_PERFORMANCE_DATA;
        case PredefinedKey::PerformanceText:
            return HKEY_PERFORMANCE_TEXT;
        case PredefinedKey::PerformanceNlsText:
            return HKEY_PERFORMANCE_NLSTEXT;
    }
    return HKEY_LOCAL_MACHINE;
}

// Closes the opened key on every path out of the read.
class KeyCloser {
public:
    explicit KeyCloser(HKEY key) : key_(key) {}
    ~KeyCloser() { ::RegCloseKey(key_); }
    KeyCloser(const KeyCloser&) = delete;
    KeyCloser& operator=(const KeyCloser&) = delete;

private:
    HKEY key_;
};

}  // namespace

std::uint32_t ReadRegistryValue(PredefinedKey root, const std::string& subKey,
                                const std::string& valueName, std::uint32_t& nativeType,
                                std::vector<std::uint8_t>& data) {
    HKEY key = nullptr;
    // No view flag: a 32-bit build deliberately reads the 32-bit registry view.
    LONG status = ::RegOpenKeyExA(ToHandle(root), subKey.c_str(), 0, KEY_READ, &key);
    if (status != ERROR_SUCCESS) {
        return static_cast<std::uint32_t>(status);
    }
    KeyCloser closer(key);

    DWORD type = 0;
    DWORD size = 0;
    status = ::RegQueryValueExA(key, valueName.c_str(), nullptr, &type, nullptr, &size);
    if (status != ERROR_SUCCESS) {
        return static_cast<std::uint32_t>(status);
    }
    data.resize(size);
    status = ::RegQueryValueExA(key, valueName.c_str(), nullptr, &type,
                                data.empty() ? nullptr : data.data(), &size);
    if (status != ERROR_SUCCESS) {
        return static_cast<std::uint32_t>(status);
    }
    // The value may have shrunk between the two queries.
    data.resize(size);
    nativeType = type;
    return 0;
}

}  // namespace integrity_check_tool::platform
