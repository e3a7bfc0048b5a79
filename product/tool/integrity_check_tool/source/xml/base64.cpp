#include <boost/archive/iterators/base64_from_binary.hpp>
#include <boost/archive/iterators/binary_from_base64.hpp>
#include <boost/archive/iterators/transform_width.hpp>

#include "xml/values.h"

namespace integrity_check_tool::xml {
namespace {

namespace iterators = boost::archive::iterators;

using Base64Values = iterators::binary_from_base64<std::string::const_iterator>;
using Base64Decoder = iterators::transform_width<Base64Values, 8, 6>;
using Base64Encoder =
    iterators::base64_from_binary<iterators::transform_width<Bytes::const_iterator, 6, 8>>;

}  // namespace

Bytes DecodeBase64(const std::string& text) {
    const std::size_t last = text.find_last_not_of('=');
    const std::size_t length = last == std::string::npos ? 0 : last + 1;
    // Every character carries six bits; a last group of fewer than eight bits
    // is padding, not data.
    const std::size_t byteCount = length * 6 / 8;
    Bytes bytes;
    bytes.reserve(byteCount);
    Base64Decoder decoder(text.begin());
    for (std::size_t index = 0; index < byteCount; ++index, ++decoder) {
        bytes.push_back(static_cast<std::uint8_t>(*decoder));
    }
    // The characters of that last group are still checked against the alphabet.
    const std::size_t decoded = (byteCount * 8 + 5) / 6;
    for (Base64Values value(text.begin() + decoded), end(text.begin() + length); value != end;
         ++value) {
        static_cast<void>(*value);
    }
    return bytes;
}

std::string EncodeBase64(const Bytes& bytes) {
    std::string text(Base64Encoder(bytes.begin()), Base64Encoder(bytes.end()));
    text.append((3 - bytes.size() % 3) % 3, '=');
    return text;
}

}  // namespace integrity_check_tool::xml
