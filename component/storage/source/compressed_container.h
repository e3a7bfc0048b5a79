#pragma once

#include <vector>

#include <zlib.h>

#include "ruk/io.h"
#include "storage/storage.h"

namespace storage::detail {

// Inflates the zlib stream that follows the header as the content is read.
// The stream must produce exactly the size named in the header, end with a
// valid checksum and be followed by nothing.
class CompressedContainer : public IContainer {
public:
    // `io` is positioned at the start of the zlib stream.
    CompressedContainer(ruk::intrusive_ptr<ruk::IIO> io, std::uint64_t contentSize);
    ~CompressedContainer() override;

    ContainerEncoding GetEncoding() const override { return ContainerEncoding::Compressed; }
    ruk::result_t GetSize(std::uint64_t* size) override;
    ruk::result_t Read(void* buffer, std::size_t size, std::size_t* read) override;

private:
    ruk::result_t Inflate(std::uint8_t* out, std::size_t size, std::size_t* produced);
    ruk::result_t RefillInput();
    // Called once the declared size is reached: the stream must end here.
    ruk::result_t ConfirmEnd();
    ruk::result_t Fail(ruk::result_t code);

    ruk::intrusive_ptr<ruk::IIO> io_;
    std::uint64_t contentSize_;
    std::uint64_t produced_ = 0;
    z_stream stream_{};
    bool initialized_ = false;
    bool inputEnded_ = false;
    bool streamEnded_ = false;
    ruk::result_t failure_ = ruk::result::Success;
    std::vector<std::uint8_t> input_;
};

}  // namespace storage::detail
