#include "raw_container.h"

namespace storage::detail {

ruk::result_t RawContainer::GetSize(std::uint64_t* size) {
    if (size == nullptr) {
        return ruk::result::InvalidArgument;
    }
    *size = size_;
    return ruk::result::Success;
}

ruk::result_t RawContainer::Read(void* buffer, std::size_t size, std::size_t* read) {
    if (read == nullptr || (buffer == nullptr && size != 0)) {
        return ruk::result::InvalidArgument;
    }
    return ruk::ReadFully(*io_, buffer, size, read);
}

}  // namespace storage::detail
