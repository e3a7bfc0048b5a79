#include <limits>
#include <string>
#include <vector>

#include "ruk/io.h"

namespace ruk {
namespace {

constexpr std::size_t kBlock = 64 * 1024;

template <typename Container>
result_t ReadWholeInto(IIO& io, std::size_t limit, Container* out) {
    if (out == nullptr) {
        return result::InvalidArgument;
    }
    Container content;
    result_t code = io.Seek(0, SeekOrigin::Begin, nullptr);
    if (Failed(code)) {
        return code;
    }
    std::uint64_t size = 0;
    if (Succeeded(io.GetSize(&size))) {
        if (size > limit) {
            return result::OutOfRange;  // known to be too large: nothing read in vain
        }
        // One byte more than the size, so that the read that finds the end
        // still fits and the common case never moves the content.
        const auto known = static_cast<std::size_t>(size);
        content.reserve(known < std::numeric_limits<std::size_t>::max() ? known + 1 : known);
    }
    for (;;) {
        const std::size_t used = content.size();
        const std::size_t allowed = limit - used;  // may be read and stay within the limit
        std::size_t request = allowed < kBlock ? allowed + 1 : kBlock;
        const std::size_t spare = content.capacity() - used;
        if (spare != 0 && spare < request) {
            request = spare;
        }
        content.resize(used + request);
        std::size_t read = 0;
        code = ReadFully(io, &content[used], request, &read);
        if (Failed(code)) {
            return code;
        }
        content.resize(used + read);
        if (content.size() > limit) {
            return result::OutOfRange;
        }
        if (read < request) {
            break;
        }
    }
    *out = std::move(content);
    return result::Success;
}

}  // namespace

result_t ReadWhole(IIO& io, std::size_t limit, std::vector<std::uint8_t>* bytes) {
    return ReadWholeInto(io, limit, bytes);
}

result_t ReadWhole(IIO& io, std::size_t limit, std::string* text) {
    return ReadWholeInto(io, limit, text);
}

}  // namespace ruk
