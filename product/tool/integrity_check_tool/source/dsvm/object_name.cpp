#include "dsvm/object_name.h"

#include <cstdint>

namespace integrity_check_tool::dsvm {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

// Decodes one code point at `index` and moves past it; a malformed or
// overlong sequence yields kReplacement and moves past one byte.
char32_t DecodeOne(const std::string& text, std::size_t& index) {
    const auto lead = static_cast<unsigned char>(text[index]);
    std::size_t length = 0;
    char32_t value = 0;
    char32_t minimum = 0;
    if (lead < 0x80) {
        ++index;
        return lead;
    } else if ((lead & 0xE0) == 0xC0) {
        length = 2, value = lead & 0x1F, minimum = 0x80;
    } else if ((lead & 0xF0) == 0xE0) {
        length = 3, value = lead & 0x0F, minimum = 0x800;
    } else if ((lead & 0xF8) == 0xF0) {
        length = 4, value = lead & 0x07, minimum = 0x10000;
    } else {
        ++index;
        return kReplacement;
    }
    if (text.size() - index < length) {
        ++index;
        return kReplacement;
    }
    for (std::size_t offset = 1; offset < length; ++offset) {
        const auto next = static_cast<unsigned char>(text[index + offset]);
        if ((next & 0xC0) != 0x80) {
            ++index;
            return kReplacement;
        }
        value = (value << 6) | (next & 0x3F);
    }
    if (value < minimum || value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF)) {
        ++index;
        return kReplacement;
    }
    index += length;
    return value;
}

template <typename Char>
std::basic_string<Char> FileNamePart(const std::basic_string<Char>& path) {
    std::size_t start = 0;
    if (path.size() >= 2 && path[1] == Char(':') &&
        ((path[0] >= Char('A') && path[0] <= Char('Z')) ||
         (path[0] >= Char('a') && path[0] <= Char('z')))) {
        start = 2;
    }
    for (std::size_t index = start; index < path.size(); ++index) {
        if (path[index] == Char('\\') || path[index] == Char('/')) {
            start = index + 1;
        }
    }
    return path.substr(start);
}

// Windows paths are UTF-16 already; POSIX paths are bytes, taken as UTF-8.
template <typename Wide>
std::u16string ToUtf16(const std::basic_string<Wide>& wide) {
    return std::u16string(wide.begin(), wide.end());
}

std::u16string ToUtf16(const std::string& narrow) {
    return Utf8ToUtf16(narrow);
}

}  // namespace

std::u16string Utf8ToUtf16(const std::string& text) {
    std::u16string result;
    result.reserve(text.size());
    std::size_t index = 0;
    while (index < text.size()) {
        const char32_t code = DecodeOne(text, index);
        if (code >= 0x10000) {
            result.push_back(static_cast<char16_t>(0xD800 + ((code - 0x10000) >> 10)));
            result.push_back(static_cast<char16_t>(0xDC00 + ((code - 0x10000) & 0x3FF)));
        } else {
            result.push_back(static_cast<char16_t>(code));
        }
    }
    return result;
}

std::vector<char16_t> GetObjectName(const boost::filesystem::path& path) {
    const std::u16string name = ToUtf16(FileNamePart(path.native()));
    std::vector<char16_t> result(name.begin(), name.end());
    result.push_back(u'\0');
    return result;
}

}  // namespace integrity_check_tool::dsvm
