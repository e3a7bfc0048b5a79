#include "check/stream_compare.h"

#include <algorithm>
#include <cstring>
#include <memory>

#include "ruk/exception.h"

namespace integrity_check_tool::check {
namespace {

constexpr std::size_t kBlockSize = 64 * 1024;

}  // namespace

bool StreamHolds(ruk::IIO& io, const std::vector<std::uint8_t>& expected) {
    // Some files (procfs) report no size but have content: zero is "unknown".
    std::uint64_t size = 0;
    if (ruk::Succeeded(io.GetSize(&size)) && size != 0 && size != expected.size()) {
        return false;
    }
    // One byte more than expected is enough to see that a stream is longer.
    const std::size_t blockSize = std::min(kBlockSize, expected.size() + 1);
    const std::unique_ptr<std::uint8_t[]> block(new std::uint8_t[blockSize]);
    std::size_t compared = 0;
    for (;;) {
        std::size_t count = 0;
        RUK_CHECK(io.Read(block.get(), blockSize, &count));
        if (count == 0) {
            return compared == expected.size();
        }
        if (count > expected.size() - compared ||
            std::memcmp(block.get(), expected.data() + compared, count) != 0) {
            return false;
        }
        compared += count;
    }
}

}  // namespace integrity_check_tool::check
