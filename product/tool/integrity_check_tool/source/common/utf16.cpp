#include "common/utf16.h"

#include <cstdint>

namespace integrity_check_tool {
namespace {

struct Lead {
    std::size_t length;
    std::uint32_t bits;
    std::uint32_t smallest;  // anything below is an overlong form
};

bool ReadLead(unsigned char byte, Lead* lead) {
    if (byte < 0x80) {
        *lead = {1, byte, 0};
    } else if ((byte & 0xE0) == 0xC0) {
        *lead = {2, byte & 0x1Fu, 0x80};
    } else if ((byte & 0xF0) == 0xE0) {
        *lead = {3, byte & 0x0Fu, 0x800};
    } else if ((byte & 0xF8) == 0xF0) {
        *lead = {4, byte & 0x07u, 0x10000};
    } else {
        return false;
    }
    return true;
}

}  // namespace

bool Utf8ToUtf16(const std::string& text, std::u16string* units) {
    units->clear();
    units->reserve(text.size());
    for (std::size_t index = 0; index < text.size();) {
        Lead lead{};
        if (!ReadLead(static_cast<unsigned char>(text[index]), &lead) ||
            text.size() - index < lead.length) {
            return false;
        }
        std::uint32_t point = lead.bits;
        for (std::size_t next = 1; next < lead.length; ++next) {
            const auto byte = static_cast<unsigned char>(text[index + next]);
            if ((byte & 0xC0) != 0x80) {
                return false;
            }
            point = (point << 6) | (byte & 0x3Fu);
        }
        if (point < lead.smallest || point > 0x10FFFF || (point >= 0xD800 && point <= 0xDFFF)) {
            return false;
        }
        if (point >= 0x10000) {
            point -= 0x10000;
            units->push_back(static_cast<char16_t>(0xD800 + (point >> 10)));
            units->push_back(static_cast<char16_t>(0xDC00 + (point & 0x3FF)));
        } else {
            units->push_back(static_cast<char16_t>(point));
        }
        index += lead.length;
    }
    return true;
}

}  // namespace integrity_check_tool
