#pragma once

#include <cstdint>
#include <vector>

#include "ruk/io.h"
#include "vds/vds_types.h"

namespace crypto::vds::service {

enum class ReaderContent { Object, RevocationContainer };

// The core's read callback over a framework stream: seek, then read.
class IoReader {
public:
    IoReader(ruk::IIO& io, ReaderContent content) : io_(io), content_(content) {}

    // Learns the stream's size; call before Callback().
    ruk::result_t Prepare();
    VdsReadCallback Callback();
    // The stream's failure behind the last failed read, if any.
    ruk::result_t GetLastError() const { return lastError_; }
    // The whole stream into memory.
    ruk::result_t ReadAll(std::vector<std::uint8_t>* bytes);

private:
    static bool Read(void* context, std::uint64_t offset, void* buffer, std::size_t size,
                     std::size_t* read);

    ruk::IIO& io_;
    ReaderContent content_;
    std::uint64_t size_ = 0;
    ruk::result_t lastError_ = ruk::result::Success;
};

}  // namespace crypto::vds::service
