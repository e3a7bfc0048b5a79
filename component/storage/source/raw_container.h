#pragma once

#include "ruk/io.h"
#include "storage/storage.h"

namespace storage::detail {

// The container's file is its content.
class RawContainer : public IContainer {
public:
    RawContainer(ruk::intrusive_ptr<ruk::IIO> io, std::uint64_t size)
        : io_(std::move(io)), size_(size) {}

    ContainerEncoding GetEncoding() const override { return ContainerEncoding::Raw; }
    ruk::result_t GetSize(std::uint64_t* size) override;
    ruk::result_t Read(void* buffer, std::size_t size, std::size_t* read) override;

private:
    ruk::intrusive_ptr<ruk::IIO> io_;
    std::uint64_t size_;
};

}  // namespace storage::detail
