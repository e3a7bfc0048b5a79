#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "ruk/io.h"

namespace integrity_check_tool {

// A block to read a stream into, lent by the calling thread: the thread keeps
// one buffer between reads and grows it up to the largest block asked for,
// so reading many small files allocates nothing per file. A nested read on
// the same thread (while the thread's buffer is lent) gets a buffer of its own.
class ReadBuffer {
public:
    explicit ReadBuffer(std::size_t size);
    ~ReadBuffer();
    ReadBuffer(const ReadBuffer&) = delete;
    ReadBuffer& operator=(const ReadBuffer&) = delete;

    std::uint8_t* Data() const { return data_; }
    std::size_t Size() const { return size_; }

private:
    std::unique_ptr<std::uint8_t[]> own_;
    std::uint8_t* data_ = nullptr;
    std::size_t size_ = 0;
    bool lent_ = false;
};

// How much to ask of `io` per read: one byte more than its size when that is
// less than `blockSize` (but never less than a page), else `blockSize`.
std::size_t ReadRequestSize(ruk::IIO& io, std::size_t blockSize);

}  // namespace integrity_check_tool
