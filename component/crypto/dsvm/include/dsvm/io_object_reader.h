#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "dsvm/dsvm.h"
#include "ruk/intrusive_ptr.h"
#include "ruk/io.h"

namespace dsvm {

// Presents a framework stream to the library as an object reader, so that
// files are read block by block where the library asks for them.
class IoObjectReader {
public:
    // The whole stream, whose size is `size`.
    IoObjectReader(ruk::intrusive_ptr<ruk::IIO> io, std::uint64_t size);
    IoObjectReader(const IoObjectReader&) = delete;
    IoObjectReader& operator=(const IoObjectReader&) = delete;

    // Asks the stream for its size; a failure is returned as the stream's result.
    static ruk::result_t Create(ruk::intrusive_ptr<ruk::IIO> io,
                                std::unique_ptr<IoObjectReader>* reader);

    const DsvmObjectReader* Get() const { return &reader_; }
    std::uint64_t GetSize() const { return reader_.size; }
    // Shows only the first `size` bytes (at most the stream's size).
    void Limit(std::uint64_t size);
    // The result of the last failed stream call; success when none failed.
    ruk::result_t GetLastError() const { return lastError_; }

private:
    static int Read(void* context, std::uint64_t offset, void* buffer, std::size_t size,
                    std::size_t* bytesRead);

    ruk::intrusive_ptr<ruk::IIO> io_;
    DsvmObjectReader reader_{};
    std::uint64_t streamSize_;
    ruk::result_t lastError_ = ruk::result::Success;
};

}  // namespace dsvm
