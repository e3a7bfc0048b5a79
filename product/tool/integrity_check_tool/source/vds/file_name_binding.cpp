#include "vds/file_name_binding.h"

#include <string>

namespace integrity_check_tool::vds {
namespace {

constexpr char16_t kReplacement = 0xFFFD;

void AppendCodePoint(std::u16string* units, std::uint32_t point) {
    if (point >= 0x10000) {
        point -= 0x10000;
        units->push_back(static_cast<char16_t>(0xD800 + (point >> 10)));
        units->push_back(static_cast<char16_t>(0xDC00 + (point & 0x3FF)));
    } else {
        units->push_back(static_cast<char16_t>(point));
    }
}

// POSIX paths are UTF-8 bytes: a byte that is not part of valid UTF-8 stands
// for U+FFFD, so such a name simply fails to match. Windows paths are UTF-16
// already (wchar_t is 16-bit there).
template <typename Char>
std::u16string ToUtf16(const std::basic_string<Char>& text) {
    std::u16string units;
    if constexpr (sizeof(Char) != 1) {
        for (const Char unit : text) {
            AppendCodePoint(&units, static_cast<std::uint32_t>(unit));
        }
        return units;
    }
    static const std::uint32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
    for (std::size_t index = 0; index < text.size();) {
        const auto lead = static_cast<unsigned char>(text[index]);
        std::size_t length = 0;
        std::uint32_t point = 0;
        if (lead < 0x80) {
            length = 1;
            point = lead;
        } else if ((lead & 0xE0) == 0xC0) {
            length = 2;
            point = lead & 0x1Fu;
        } else if ((lead & 0xF0) == 0xE0) {
            length = 3;
            point = lead & 0x0Fu;
        } else if ((lead & 0xF8) == 0xF0) {
            length = 4;
            point = lead & 0x07u;
        }
        bool valid = length != 0 && index + length <= text.size();
        for (std::size_t next = 1; valid && next < length; ++next) {
            const auto byte = static_cast<unsigned char>(text[index + next]);
            valid = (byte & 0xC0) == 0x80;
            point = (point << 6) | (byte & 0x3Fu);
        }
        valid = valid && point >= kSmallest[length] && point <= 0x10FFFF &&
                !(point >= 0xD800 && point <= 0xDFFF);
        if (!valid) {
            units.push_back(kReplacement);
            index += 1;
            continue;
        }
        AppendCodePoint(&units, point);
        index += length;
    }
    return units;
}

std::u16string FileNamePart(const std::u16string& path) {
    const std::size_t separator = path.find_last_of(u"\\/");
    if (separator != std::u16string::npos) {
        return path.substr(separator + 1);
    }
    const bool driveLetter =
        path.size() >= 2 && path[1] == u':' &&
        ((path[0] >= u'A' && path[0] <= u'Z') || (path[0] >= u'a' && path[0] <= u'z'));
    return driveLetter ? path.substr(2) : path;
}

}  // namespace

std::vector<std::uint8_t> FileNameBindingContent(const boost::filesystem::path& path) {
    const std::u16string name = FileNamePart(ToUtf16(path.native()));
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

}  // namespace integrity_check_tool::vds
