#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "ruk/io.h"

namespace integrity_check_tool {

// Reads `io` from its current position to its end in blocks of at most
// `blockSize` bytes and hands each block to `consume(data, size)`. Returns
// the first failing read's result; the caller decides how to report it.
// Only one block is held at a time, so any size of stream can be read.
template <typename Consume>
ruk::result_t ReadBlocks(ruk::IIO& io, std::size_t blockSize, Consume&& consume) {
    // Left uninitialised: a block is always written by the read before use.
    const std::unique_ptr<std::uint8_t[]> block(new std::uint8_t[blockSize]);
    for (;;) {
        std::size_t count = 0;
        const ruk::result_t result = io.Read(block.get(), blockSize, &count);
        if (ruk::Failed(result)) {
            return result;
        }
        if (count == 0) {
            return ruk::result::Success;
        }
        consume(block.get(), count);
    }
}

}  // namespace integrity_check_tool
