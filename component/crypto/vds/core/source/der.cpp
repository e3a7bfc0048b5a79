#include "vds/der.h"

namespace vds::format {

bool DerReader::Next(std::uint8_t tag, DerElement* element) {
    if (!PeekTag(tag) || end_ - cursor_ < 2) {
        return false;
    }
    element->tag = tag;
    element->begin = cursor_;
    const std::uint8_t* at = cursor_ + 1;
    std::size_t length = *at++;
    if ((length & 0x80) != 0) {
        const std::size_t count = length & 0x7F;
        if (count == 0 || count > sizeof(std::size_t) ||
            static_cast<std::size_t>(end_ - at) < count) {
            return false;
        }
        length = 0;
        for (std::size_t index = 0; index < count; ++index) {
            length = (length << 8) | *at++;
        }
    }
    if (static_cast<std::size_t>(end_ - at) < length) {
        return false;
    }
    element->content = at;
    element->contentSize = length;
    element->end = at + length;
    cursor_ = element->end;
    return true;
}

std::vector<std::uint8_t> EncodeDer(std::uint8_t tag, const std::vector<std::uint8_t>& content) {
    std::vector<std::uint8_t> encoded{tag};
    const std::size_t size = content.size();
    if (size < 0x80) {
        encoded.push_back(static_cast<std::uint8_t>(size));
    } else {
        std::vector<std::uint8_t> length;
        for (std::size_t rest = size; rest != 0; rest >>= 8) {
            length.insert(length.begin(), static_cast<std::uint8_t>(rest & 0xFF));
        }
        encoded.push_back(static_cast<std::uint8_t>(0x80 | length.size()));
        encoded.insert(encoded.end(), length.begin(), length.end());
    }
    encoded.insert(encoded.end(), content.begin(), content.end());
    return encoded;
}

}  // namespace vds::format
