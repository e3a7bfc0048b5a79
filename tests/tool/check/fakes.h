#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "data_object/i_data_object.h"
#include "ruk/io.h"

namespace ict_test {

using Bytes = std::vector<std::uint8_t>;
using Size = std::optional<std::uint64_t>;  // none: the stream reports no size

// A stream of `content` that may claim another size or none, may repeat its
// content without end and may fail its read number `failingRead` with an
// I/O error; it counts what was asked of it.
class ScriptedStream : public ruk::MemoryIO {
public:
    ScriptedStream(Bytes content, Size claimedSize, bool endless = false, int failingRead = -1)
        : content_(std::move(content)),
          claimedSize_(claimedSize),
          endless_(endless),
          failingRead_(failingRead) {}

    ruk::result_t Read(void* buffer, std::size_t size, std::size_t* read) override {
        if (reads_++ == failingRead_) {
            return ruk::result::IoError;
        }
        largestRequest = std::max(largestRequest, size);
        std::size_t count = 0;
        auto* out = static_cast<std::uint8_t*>(buffer);
        while (count < size && !content_.empty() && (endless_ || position_ < content_.size())) {
            out[count++] = content_[position_++ % content_.size()];
        }
        bytesRead += count;
        *read = count;
        return ruk::result::Success;
    }
    ruk::result_t GetSize(std::uint64_t* size) override {
        *size = claimedSize_.value_or(0);
        return claimedSize_ ? ruk::result::Success : ruk::result::NotSupported;
    }

    std::size_t bytesRead = 0;
    std::size_t largestRequest = 0;

private:
    Bytes content_;
    Size claimedSize_;
    bool endless_;
    int failingRead_;
    int reads_ = 0;
    std::size_t position_ = 0;
};

// A data object whose every GetData is a new ScriptedStream (by default one
// that tells its true size); counts how often it was read.
class FakeDataObject : public integrity_check_tool::IDataObject {
public:
    FakeDataObject(bool exists, Bytes content) : FakeDataObject(exists, content, content.size()) {}
    FakeDataObject(bool exists, Bytes content, Size claimedSize, bool endless = false,
                   int failingRead = -1)
        : exists_(exists),
          content_(std::move(content)),
          claimedSize_(claimedSize),
          endless_(endless),
          failingRead_(failingRead) {}

    std::string GetTypeName() const override { return "Fake"; }
    bool IsExists() const override { return exists_; }
    ruk::intrusive_ptr<ruk::IIO> GetData() const override {
        ++reads;
        return ruk::intrusive_ptr<ruk::IIO>(
            new ScriptedStream(content_, claimedSize_, endless_, failingRead_));
    }

    mutable int reads = 0;

private:
    bool exists_;
    Bytes content_;
    Size claimedSize_;
    bool endless_;
    int failingRead_;
};

inline Bytes BytesOf(const std::string& text) {
    return Bytes(text.begin(), text.end());
}

}  // namespace ict_test
