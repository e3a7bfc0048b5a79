#include "platform/file_names.h"

#include <windows.h>

namespace integrity_check_tool::platform {

// The file system's own comparison is ordinal and case-insensitive: the
// invariant upper case is the closest the API offers.
boost::filesystem::path::string_type FileNameKey(const boost::filesystem::path& path) {
    std::wstring key = path.native();
    if (key.empty()) {
        return key;
    }
    const int length = static_cast<int>(key.size());
    if (::LCMapStringEx(LOCALE_NAME_INVARIANT, LCMAP_UPPERCASE, path.native().data(), length,
                        key.data(), length, nullptr, nullptr, 0) != length) {
        return path.native();  // Not mapped one to one: the name as it stands.
    }
    return key;
}

}  // namespace integrity_check_tool::platform
