#include "utils/read_buffer.h"

#include <algorithm>

namespace integrity_check_tool {
namespace {

constexpr std::size_t kSmallestRequest = 4096;

struct ThreadBuffer {
    std::unique_ptr<std::uint8_t[]> data;
    std::size_t capacity = 0;
    bool lent = false;
};

ThreadBuffer& GetThreadBuffer() {
    thread_local ThreadBuffer buffer;
    return buffer;
}

}  // namespace

ReadBuffer::ReadBuffer(std::size_t size) : size_(size) {
    ThreadBuffer& shared = GetThreadBuffer();
    if (shared.lent) {
        // Left uninitialised: a block is always written by the read before use.
        own_.reset(new std::uint8_t[size]);
        data_ = own_.get();
        return;
    }
    if (shared.capacity < size) {
        shared.data.reset();  // the old block goes before the new one is taken
        shared.data.reset(new std::uint8_t[size]);
        shared.capacity = size;
    }
    shared.lent = true;
    lent_ = true;
    data_ = shared.data.get();
}

ReadBuffer::~ReadBuffer() {
    if (lent_) {
        GetThreadBuffer().lent = false;
    }
}

std::size_t ReadRequestSize(ruk::IIO& io, std::size_t blockSize) {
    std::uint64_t size = blockSize;
    if (ruk::Failed(io.GetSize(&size))) {
        size = blockSize;
    }
    // One byte more than the size: a file read whole in one short read
    // needs no second read to find its end.
    const std::uint64_t wanted = std::max<std::uint64_t>(size + 1, kSmallestRequest);
    return static_cast<std::size_t>(std::min<std::uint64_t>(wanted, blockSize));
}

}  // namespace integrity_check_tool
