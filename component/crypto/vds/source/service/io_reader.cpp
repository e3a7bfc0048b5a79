#include "service/io_reader.h"

#include <limits>

#include "service/log.h"

namespace crypto::vds::service {

ruk::result_t IoReader::Prepare() {
    return io_.GetSize(&size_);
}

VdsReadCallback IoReader::Callback() {
    return {this, &IoReader::Read, size_};
}

bool IoReader::Read(void* context, std::uint64_t offset, void* buffer, std::size_t size,
                    std::size_t* read) {
    auto* self = static_cast<IoReader*>(context);
    *read = 0;
    ruk::result_t code = ruk::result::OutOfRange;
    if (offset <= static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
        code = self->io_.Seek(static_cast<std::int64_t>(offset), ruk::SeekOrigin::Begin, nullptr);
        if (ruk::Succeeded(code)) {
            code = ruk::ReadFully(self->io_, buffer, size, read);
        }
    }
    if (ruk::Failed(code)) {
        self->lastError_ = code;
        if (self->content_ == ReaderContent::RevocationContainer) {
            Log("IoReader::Read", "Failed to load revocation database.");
        }
        return false;
    }
    return true;
}

ruk::result_t IoReader::ReadAll(std::vector<std::uint8_t>* bytes) {
    ruk::result_t code = Prepare();
    if (ruk::Failed(code)) {
        return code;
    }
    if (size_ > std::numeric_limits<std::size_t>::max()) {
        return ruk::result::OutOfMemory;
    }
    // The stream holds what its size says, no more and no less.
    code = ruk::ReadWhole(io_, static_cast<std::size_t>(size_), bytes);
    if (ruk::Failed(code)) {
        lastError_ = code;
        if (content_ == ReaderContent::RevocationContainer) {
            Log("IoReader::Read", "Failed to load revocation database.");
        }
        return code;
    }
    if (bytes->size() != size_) {
        if (content_ == ReaderContent::RevocationContainer) {
            Log("IoReader::ReadAll", "Failed to load revocation database.");
        }
        return ruk::result::EndOfStream;
    }
    return ruk::result::Success;
}

}  // namespace crypto::vds::service
