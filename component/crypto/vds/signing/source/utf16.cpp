#include <cstdint>
#include <string>
#include <vector>

#include "vds/signing.h"

namespace vds::signing {
namespace {

void AppendUnit(std::vector<std::uint8_t>* bytes, std::uint32_t unit) {
    bytes->push_back(static_cast<std::uint8_t>(unit & 0xFF));
    bytes->push_back(static_cast<std::uint8_t>(unit >> 8));
}

}  // namespace

std::vector<std::uint8_t> FileNameContent(const std::string& utf8Name) {
    std::vector<std::uint8_t> bytes;
    for (std::size_t index = 0; index < utf8Name.size();) {
        const auto lead = static_cast<std::uint8_t>(utf8Name[index]);
        std::size_t length = 0;
        std::uint32_t point = 0;
        if (lead < 0x80) {
            length = 1;
            point = lead;
        } else if ((lead & 0xE0) == 0xC0) {
            length = 2;
            point = lead & 0x1F;
        } else if ((lead & 0xF0) == 0xE0) {
            length = 3;
            point = lead & 0x0F;
        } else if ((lead & 0xF8) == 0xF0) {
            length = 4;
            point = lead & 0x07;
        } else {
            throw Error("File name " + utf8Name + " is not valid UTF-8");
        }
        if (index + length > utf8Name.size()) {
            throw Error("File name " + utf8Name + " is not valid UTF-8");
        }
        for (std::size_t next = 1; next < length; ++next) {
            const auto byte = static_cast<std::uint8_t>(utf8Name[index + next]);
            if ((byte & 0xC0) != 0x80) {
                throw Error("File name " + utf8Name + " is not valid UTF-8");
            }
            point = (point << 6) | (byte & 0x3F);
        }
        static const std::uint32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
        if (point < kSmallest[length] || point > 0x10FFFF || (point >= 0xD800 && point <= 0xDFFF)) {
            throw Error("File name " + utf8Name + " is not valid UTF-8");
        }
        if (point >= 0x10000) {
            point -= 0x10000;
            AppendUnit(&bytes, 0xD800 + (point >> 10));
            AppendUnit(&bytes, 0xDC00 + (point & 0x3FF));
        } else {
            AppendUnit(&bytes, point);
        }
        index += length;
    }
    AppendUnit(&bytes, 0);
    return bytes;
}

}  // namespace vds::signing
