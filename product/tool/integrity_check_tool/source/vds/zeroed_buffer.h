#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <vector>

namespace integrity_check_tool::vds {

// A zero-filled byte buffer. It comes from calloc, so a large buffer costs
// address space but no memory until it is written.
class ZeroedBuffer {
public:
    ZeroedBuffer() = default;
    // Throws std::bad_alloc when the memory is not there.
    explicit ZeroedBuffer(std::size_t size)
        : bytes_(static_cast<std::uint8_t*>(std::calloc(size == 0 ? 1 : size, 1))), size_(size) {
        if (!bytes_) {
            throw std::bad_alloc();
        }
    }
    explicit ZeroedBuffer(const std::vector<std::uint8_t>& bytes) : ZeroedBuffer(bytes.size()) {
        if (!bytes.empty()) {
            std::memcpy(bytes_.get(), bytes.data(), bytes.size());
        }
    }

    std::uint8_t* Data() { return bytes_.get(); }
    const std::uint8_t* Data() const { return bytes_.get(); }
    std::size_t Size() const { return size_; }

private:
    struct Free {
        void operator()(std::uint8_t* bytes) const { std::free(bytes); }
    };

    std::unique_ptr<std::uint8_t, Free> bytes_;
    std::size_t size_ = 0;
};

}  // namespace integrity_check_tool::vds
