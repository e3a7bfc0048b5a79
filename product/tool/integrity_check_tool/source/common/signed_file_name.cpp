#include "common/signed_file_name.h"

#include "common/exception.h"
#include "common/message_format.h"
#include "common/utf16.h"

namespace integrity_check_tool {
namespace {

template <typename Char>
bool IsDriveLetter(Char character) {
    return (character >= Char('A') && character <= Char('Z')) ||
           (character >= Char('a') && character <= Char('z'));
}

template <typename Char>
std::basic_string<Char> NamePart(const std::basic_string<Char>& path) {
    const std::size_t separator = path.find_last_of(std::basic_string<Char>{Char('\\'), Char('/')});
    if (separator != std::basic_string<Char>::npos) {
        return path.substr(separator + 1);
    }
    if (path.size() >= 2 && path[1] == Char(':') && IsDriveLetter(path[0])) {
        return path.substr(2);
    }
    return path;
}

#if defined(_WIN32)
// Windows paths are UTF-16 already.
std::u16string ToUtf16(const std::wstring& name, const boost::filesystem::path&) {
    return std::u16string(name.begin(), name.end());
}
#else
const char* NotUtf8() {
    return "File name %1% is not valid UTF-8";
}

std::u16string ToUtf16(const std::string& name, const boost::filesystem::path& path) {
    std::u16string units;
    if (!Utf8ToUtf16(name, &units)) {
        ICT_THROW(Exception(MessageFormat(NotUtf8(), path.string())));
    }
    return units;
}
#endif

}  // namespace

std::u16string SignedFileName(const boost::filesystem::path& path) {
    return ToUtf16(NamePart(path.native()), path);
}

std::vector<std::uint8_t> SignedFileNameBytes(const boost::filesystem::path& path) {
    const std::u16string name = SignedFileName(path);
    std::vector<std::uint8_t> bytes;
    bytes.reserve((name.size() + 1) * 2);
    for (const char16_t unit : name) {
        bytes.push_back(static_cast<std::uint8_t>(unit & 0xFF));
        bytes.push_back(static_cast<std::uint8_t>(unit >> 8));
    }
    bytes.push_back(0);
    bytes.push_back(0);
    return bytes;
}

}  // namespace integrity_check_tool
