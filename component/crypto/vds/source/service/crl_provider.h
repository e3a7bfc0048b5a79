#pragma once

#include <cstdint>
#include <vector>

#include "ruk/intrusive_ptr.h"
#include "ruk/io.h"

namespace crypto::vds::service {

// Hands out the revocation container the verifiers are built over.
class IVdsCrlProvider : public ruk::RefCounted {
public:
    virtual ruk::result_t OpenCrlContainer(ruk::intrusive_ptr<ruk::IIO>* io) = 0;
};

using IVdsCrlProviderPtr = ruk::intrusive_ptr<IVdsCrlProvider>;

// A container held in memory.
class MemoryCrlProvider : public IVdsCrlProvider {
public:
    explicit MemoryCrlProvider(std::vector<std::uint8_t> container)
        : container_(std::move(container)) {}

    ruk::result_t OpenCrlContainer(ruk::intrusive_ptr<ruk::IIO>* io) override {
        if (io == nullptr) {
            return ruk::result::InvalidArgument;
        }
        *io = ruk::CreateMemoryIO(container_);
        return ruk::result::Success;
    }

private:
    std::vector<std::uint8_t> container_;
};

}  // namespace crypto::vds::service
