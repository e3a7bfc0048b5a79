#include "support/mutator.h"

#include <cctype>

namespace ict_test {
namespace {

const std::uint8_t kInteresting[] = {0x00, 0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x11,
                                     0x13, 0x17, 0x18, 0x30, 0x31, 0x7F, 0x80, 0x81,
                                     0x82, 0x83, 0x84, 0xA0, 0xA1, 0xA3, 0xFE, 0xFF};

}  // namespace

std::size_t Mutator::Position(bool inSignature) {
    const std::size_t begin = inSignature ? start_ : 0;
    const std::size_t end = inSignature ? original_.size() : start_;
    return std::uniform_int_distribution<std::size_t>(begin, end - 1)(random_);
}

void Mutator::Resize(std::vector<std::uint8_t>& bytes, int delta) const {
    if (sizeField_ == 0) {
        return;
    }
    const std::size_t at = bytes.size() - sizeField_;
    std::uint32_t size = 0;
    for (int index = 3; index >= 0; --index) {
        size = (size << 8) | bytes[at + static_cast<std::size_t>(index)];
    }
    size = static_cast<std::uint32_t>(static_cast<std::int64_t>(size) + delta);
    for (std::size_t index = 0; index < 4; ++index) {
        bytes[at + index] = static_cast<std::uint8_t>(size >> (8 * index));
    }
}

std::vector<std::uint8_t> Mutator::Next() {
    for (;;) {
        std::vector<std::uint8_t> bytes = original_;
        const int kind = std::uniform_int_distribution<int>(0, 99)(random_);
        if (kind < 5 && start_ > 0) {
            bytes[Position(false)] ^= static_cast<std::uint8_t>(1u << (random_() % 8));
        } else if (kind < 35) {
            bytes[Position(true)] ^= static_cast<std::uint8_t>(1u << (random_() % 8));
        } else if (kind < 50) {
            bytes[Position(true)] = static_cast<std::uint8_t>(random_());
        } else if (kind < 70) {
            bytes[Position(true)] = kInteresting[random_() % sizeof(kInteresting)];
        } else if (kind < 80) {
            // A letter's case, as in a name that only a case-blind comparison matches.
            for (int attempt = 0; attempt < 64; ++attempt) {
                const std::size_t at = Position(true);
                if (std::isalpha(bytes[at]) != 0) {
                    bytes[at] ^= 0x20;
                    break;
                }
            }
        } else if (kind < 90) {
            const int count = 2 + static_cast<int>(random_() % 3);
            for (int index = 0; index < count; ++index) {
                bytes[Position(true)] = static_cast<std::uint8_t>(random_());
            }
        } else if (sizeField_ != 0) {
            // Inside the block, before the trailer.
            const std::size_t blockEnd = bytes.size() - sizeField_ - 8;
            const std::size_t at =
                std::uniform_int_distribution<std::size_t>(start_, blockEnd - 1)(random_);
            if (kind < 95) {
                bytes.insert(bytes.begin() + static_cast<std::ptrdiff_t>(at),
                             static_cast<std::uint8_t>(random_()));
                Resize(bytes, 1);
            } else {
                bytes.erase(bytes.begin() + static_cast<std::ptrdiff_t>(at));
                Resize(bytes, -1);
            }
        }
        if (bytes != original_) {
            return bytes;
        }
    }
}

}  // namespace ict_test
