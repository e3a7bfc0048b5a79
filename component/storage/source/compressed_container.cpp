#include "compressed_container.h"

#include <algorithm>
#include <limits>

namespace storage::detail {
namespace {

constexpr std::size_t kInputChunk = 64 * 1024;

}  // namespace

CompressedContainer::CompressedContainer(ruk::intrusive_ptr<ruk::IIO> io, std::uint64_t contentSize)
    : io_(std::move(io)), contentSize_(contentSize), input_(kInputChunk) {
    initialized_ = inflateInit(&stream_) == Z_OK;
    if (!initialized_) {
        failure_ = ruk::result::OutOfMemory;
    }
}

CompressedContainer::~CompressedContainer() {
    if (initialized_) {
        inflateEnd(&stream_);
    }
}

ruk::result_t CompressedContainer::GetSize(std::uint64_t* size) {
    if (size == nullptr) {
        return ruk::result::InvalidArgument;
    }
    *size = contentSize_;
    return ruk::result::Success;
}

ruk::result_t CompressedContainer::Fail(ruk::result_t code) {
    failure_ = code;
    return code;
}

ruk::result_t CompressedContainer::RefillInput() {
    std::size_t count = 0;
    const ruk::result_t code = io_->Read(input_.data(), input_.size(), &count);
    if (ruk::Failed(code)) {
        return Fail(code);
    }
    inputEnded_ = count == 0;
    stream_.next_in = input_.data();
    stream_.avail_in = static_cast<uInt>(count);
    return ruk::result::Success;
}

ruk::result_t CompressedContainer::Inflate(std::uint8_t* out, std::size_t size,
                                           std::size_t* produced) {
    *produced = 0;
    while (*produced < size) {
        if (stream_.avail_in == 0) {
            const ruk::result_t code = RefillInput();
            if (ruk::Failed(code)) {
                return code;
            }
            if (inputEnded_) {
                return Fail(ruk::result::InvalidFormat);  // truncated stream
            }
        }
        const std::size_t room =
            std::min<std::size_t>(size - *produced, std::numeric_limits<uInt>::max());
        stream_.next_out = out + *produced;
        stream_.avail_out = static_cast<uInt>(room);
        const int code = inflate(&stream_, Z_NO_FLUSH);
        *produced += room - stream_.avail_out;
        if (code == Z_STREAM_END) {
            streamEnded_ = true;
            return ruk::result::Success;
        }
        if (code != Z_OK && code != Z_BUF_ERROR) {
            return Fail(code == Z_MEM_ERROR ? ruk::result::OutOfMemory
                                            : ruk::result::InvalidFormat);
        }
    }
    return ruk::result::Success;
}

ruk::result_t CompressedContainer::ConfirmEnd() {
    if (!streamEnded_) {
        std::uint8_t extra = 0;
        std::size_t produced = 0;
        const ruk::result_t code = Inflate(&extra, 1, &produced);
        if (ruk::Failed(code)) {
            return code;
        }
        if (produced != 0 || !streamEnded_) {
            return Fail(ruk::result::InvalidFormat);  // longer than declared
        }
    }
    if (stream_.avail_in != 0) {
        return Fail(ruk::result::InvalidFormat);  // bytes after the stream
    }
    const ruk::result_t code = RefillInput();
    if (ruk::Failed(code)) {
        return code;
    }
    if (!inputEnded_) {
        return Fail(ruk::result::InvalidFormat);
    }
    return ruk::result::Success;
}

ruk::result_t CompressedContainer::Read(void* buffer, std::size_t size, std::size_t* read) {
    if (read == nullptr || (buffer == nullptr && size != 0)) {
        return ruk::result::InvalidArgument;
    }
    *read = 0;
    if (ruk::Failed(failure_)) {
        return failure_;
    }
    const std::uint64_t remaining = contentSize_ - produced_;
    const std::size_t wanted = static_cast<std::size_t>(std::min<std::uint64_t>(size, remaining));
    if (wanted != 0) {
        std::size_t produced = 0;
        const ruk::result_t code = Inflate(static_cast<std::uint8_t*>(buffer), wanted, &produced);
        produced_ += produced;
        *read = produced;
        if (ruk::Failed(code)) {
            return code;
        }
        if (produced_ < contentSize_ && streamEnded_) {
            return Fail(ruk::result::InvalidFormat);  // shorter than declared
        }
    }
    if (produced_ == contentSize_ && !inputEnded_) {
        return ConfirmEnd();
    }
    return ruk::result::Success;
}

}  // namespace storage::detail
