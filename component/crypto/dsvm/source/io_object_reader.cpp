#include "dsvm/io_object_reader.h"

#include <algorithm>
#include <limits>

namespace dsvm {

IoObjectReader::IoObjectReader(ruk::intrusive_ptr<ruk::IIO> io, std::uint64_t size)
    : io_(std::move(io)), streamSize_(size) {
    reader_.read = &IoObjectReader::Read;
    reader_.context = this;
    reader_.size = size;
}

ruk::result_t IoObjectReader::Create(ruk::intrusive_ptr<ruk::IIO> io,
                                     std::unique_ptr<IoObjectReader>* reader) {
    if (!io || reader == nullptr) {
        return ruk::result::InvalidArgument;
    }
    std::uint64_t size = 0;
    const ruk::result_t result = io->GetSize(&size);
    if (ruk::Failed(result)) {
        return result;
    }
    *reader = std::make_unique<IoObjectReader>(std::move(io), size);
    return ruk::result::Success;
}

void IoObjectReader::Limit(std::uint64_t size) {
    reader_.size = std::min(size, streamSize_);
}

int IoObjectReader::Read(void* context, std::uint64_t offset, void* buffer, std::size_t size,
                         std::size_t* bytesRead) {
    auto* self = static_cast<IoObjectReader*>(context);
    *bytesRead = 0;
    if (offset > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
        self->lastError_ = ruk::result::OutOfRange;
        return 1;
    }
    std::uint64_t position = 0;
    ruk::result_t result =
        self->io_->Seek(static_cast<std::int64_t>(offset), ruk::SeekOrigin::Begin, &position);
    if (ruk::Succeeded(result)) {
        result = ruk::ReadFully(*self->io_, buffer, size, bytesRead);
    }
    if (ruk::Failed(result)) {
        self->lastError_ = result;
        return 1;
    }
    return 0;
}

}  // namespace dsvm
