#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

// A minimal DER walker and writer for the few structures OpenSSL has no
// type for (Authenticode's content) or parses without checking.
namespace vds::format {

constexpr std::uint8_t kDerInteger = 0x02;
constexpr std::uint8_t kDerBitString = 0x03;
constexpr std::uint8_t kDerOctetString = 0x04;
constexpr std::uint8_t kDerNull = 0x05;
constexpr std::uint8_t kDerObject = 0x06;
constexpr std::uint8_t kDerSequence = 0x30;
constexpr std::uint8_t kDerSet = 0x31;
constexpr std::uint8_t kDerContext0 = 0xA0;
constexpr std::uint8_t kDerContext1 = 0xA1;

// One element: its tag, its whole encoding and its content.
struct DerElement {
    std::uint8_t tag = 0;
    const std::uint8_t* begin = nullptr;  // the tag
    const std::uint8_t* content = nullptr;
    std::size_t contentSize = 0;
    const std::uint8_t* end = nullptr;  // after the content
};

// Walks the elements of one content range; every read is bounded by it.
class DerReader {
public:
    DerReader(const std::uint8_t* begin, std::size_t size) : cursor_(begin), end_(begin + size) {}
    explicit DerReader(const DerElement& element)
        : DerReader(element.content, element.contentSize) {}

    bool AtEnd() const { return cursor_ == end_; }
    bool PeekTag(std::uint8_t tag) const { return !AtEnd() && *cursor_ == tag; }
    // The next element if it has this tag and its length fits the range.
    bool Next(std::uint8_t tag, DerElement* element);

private:
    const std::uint8_t* cursor_;
    const std::uint8_t* end_;
};

// Tag, definite length and content.
std::vector<std::uint8_t> EncodeDer(std::uint8_t tag, const std::vector<std::uint8_t>& content);

}  // namespace vds::format
