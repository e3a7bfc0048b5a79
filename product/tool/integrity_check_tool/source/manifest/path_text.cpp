#include "manifest/path_text.h"

#include <codecvt>
#include <locale>
#include <stdexcept>
#include <type_traits>

#include "common/exception.h"
#include "common/message_format.h"

namespace integrity_check_tool {
namespace {

// Used only where paths are wide.
[[maybe_unused]] const char* NotUtf8() {
    return "Path %1% is not valid UTF-8";
}

using Utf16Converter = std::wstring_convert<std::codecvt_utf8_utf16<wchar_t>>;

// Templates on the path type, so that only the branch of this platform's
// character type is ever compiled.
template <typename Path>
Path FromUtf8(const std::string& text) {
    if constexpr (std::is_same_v<typename Path::value_type, char>) {
        return Path(text);
    } else {
        try {
            return Path(Utf16Converter().from_bytes(text));
        } catch (const std::range_error&) {
            ICT_THROW(Exception(MessageFormat(NotUtf8(), text)));
        }
    }
}

template <typename Path>
std::string ToUtf8(const Path& path) {
    if constexpr (std::is_same_v<typename Path::value_type, char>) {
        return path.native();
    } else {
        return Utf16Converter().to_bytes(path.native());
    }
}

}  // namespace

boost::filesystem::path PathFromUtf8(const std::string& text) {
    return FromUtf8<boost::filesystem::path>(text);
}

std::string PathToUtf8(const boost::filesystem::path& path) {
    return ToUtf8(path);
}

}  // namespace integrity_check_tool
