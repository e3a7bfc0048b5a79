#include <algorithm>
#include <cstring>
#include <limits>

#include "ruk/io.h"

namespace ruk {

result_t MemoryIO::Read(void* buffer, std::size_t size, std::size_t* read) {
    std::size_t available = 0;
    if (position_ < data_.size()) {
        available = std::min<std::size_t>(size, data_.size() - static_cast<std::size_t>(position_));
    }
    if (available != 0) {
        std::memcpy(buffer, data_.data() + position_, available);
    }
    position_ += available;
    if (read != nullptr) {
        *read = available;
    }
    return result::Success;
}

result_t MemoryIO::Write(const void* buffer, std::size_t size, std::size_t* written) {
    if (position_ > std::numeric_limits<std::size_t>::max() - size) {
        return result::OutOfMemory;
    }
    const std::size_t end = static_cast<std::size_t>(position_) + size;
    if (end > data_.size()) {
        data_.resize(end);
    }
    if (size != 0) {
        std::memcpy(data_.data() + position_, buffer, size);
    }
    position_ = end;
    if (written != nullptr) {
        *written = size;
    }
    return result::Success;
}

result_t MemoryIO::Seek(std::int64_t offset, SeekOrigin origin, std::uint64_t* position) {
    std::int64_t base = 0;
    switch (origin) {
        case SeekOrigin::Begin:
            base = 0;
            break;
        case SeekOrigin::Current:
            base = static_cast<std::int64_t>(position_);
            break;
        case SeekOrigin::End:
            base = static_cast<std::int64_t>(data_.size());
            break;
    }
    // Checked before adding: a huge offset must not overflow into a valid position.
    if ((offset > 0 && base > std::numeric_limits<std::int64_t>::max() - offset) ||
        base + offset < 0) {
        return result::InvalidArgument;
    }
    const std::int64_t target = base + offset;
    position_ = static_cast<std::uint64_t>(target);
    if (position != nullptr) {
        *position = position_;
    }
    return result::Success;
}

result_t MemoryIO::GetSize(std::uint64_t* size) {
    *size = data_.size();
    return result::Success;
}

result_t MemoryIO::SetSize(std::uint64_t size) {
    if (size > std::numeric_limits<std::size_t>::max()) {
        return result::OutOfMemory;
    }
    data_.resize(static_cast<std::size_t>(size));
    return result::Success;
}

intrusive_ptr<IIO> CreateMemoryIO(std::vector<std::uint8_t> data) {
    return intrusive_ptr<IIO>(new MemoryIO(std::move(data)));
}

result_t ReadFully(IIO& io, void* buffer, std::size_t size, std::size_t* read) {
    auto* bytes = static_cast<std::uint8_t*>(buffer);
    std::size_t total = 0;
    while (total < size) {
        std::size_t chunk = 0;
        const result_t code = io.Read(bytes + total, size - total, &chunk);
        if (Failed(code)) {
            *read = total;
            return code;
        }
        if (chunk == 0) {
            break;
        }
        total += chunk;
    }
    *read = total;
    return result::Success;
}

}  // namespace ruk
