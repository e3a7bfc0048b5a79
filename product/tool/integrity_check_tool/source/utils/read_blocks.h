#pragma once

#include <cstddef>
#include <cstdint>

#include "ruk/io.h"
#include "utils/read_buffer.h"

namespace integrity_check_tool {

// Reads `io` from its current position to its end in blocks of at most
// `blockSize` bytes (no more than the stream's size when it is known) and
// hands each block to `consume(data, size)`. Returns the first failing
// read's result; the caller decides how to report it. Only one block is held
// at a time, so any size of stream can be read, and the block is the
// thread's own (ReadBuffer), so a file costs no allocation.
template <typename Consume>
ruk::result_t ReadBlocks(ruk::IIO& io, std::size_t blockSize, Consume&& consume) {
    const ReadBuffer block(ReadRequestSize(io, blockSize));
    for (;;) {
        std::size_t count = 0;
        const ruk::result_t result = io.Read(block.Data(), block.Size(), &count);
        if (ruk::Failed(result)) {
            return result;
        }
        if (count == 0) {
            return ruk::result::Success;
        }
        consume(block.Data(), count);
    }
}

}  // namespace integrity_check_tool
