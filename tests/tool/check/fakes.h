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

// What a ScriptedStream holds and does: `content`, claiming another size or
// none, maybe repeating without end, maybe failing its read number
// `failingRead` with an I/O error.
struct StreamScript {
    Bytes content;
    Size claimedSize;
    bool endless = false;
    int failingRead = -1;
};

// A stream that plays its script and counts what was asked of it.
class ScriptedStream : public ruk::MemoryIO {
public:
    explicit ScriptedStream(StreamScript script) : script_(std::move(script)) {}

    ruk::result_t Read(void* buffer, std::size_t size, std::size_t* read) override {
        if (reads_++ == script_.failingRead) {
            return ruk::result::IoError;
        }
        largestRequest = std::max(largestRequest, size);
        const Bytes& content = script_.content;
        std::size_t count = 0;
        auto* out = static_cast<std::uint8_t*>(buffer);
        while (count < size && !content.empty() &&
               (script_.endless || position_ < content.size())) {
            out[count++] = content[position_++ % content.size()];
        }
        bytesRead += count;
        *read = count;
        return ruk::result::Success;
    }
    ruk::result_t GetSize(std::uint64_t* size) override {
        *size = script_.claimedSize.value_or(0);
        return script_.claimedSize ? ruk::result::Success : ruk::result::NotSupported;
    }

    std::size_t bytesRead = 0;
    std::size_t largestRequest = 0;

private:
    StreamScript script_;
    int reads_ = 0;
    std::size_t position_ = 0;
};

// A data object whose every GetData is a new ScriptedStream (by default one
// that tells its true size); counts how often it was read.
class FakeDataObject : public integrity_check_tool::IDataObject {
public:
    FakeDataObject(bool exists, Bytes content)
        : FakeDataObject(exists, StreamScript{content, content.size()}) {}
    FakeDataObject(bool exists, StreamScript script)
        : exists_(exists), script_(std::move(script)) {}

    std::string GetTypeName() const override { return "Fake"; }
    bool IsExists() const override { return exists_; }
    ruk::intrusive_ptr<ruk::IIO> GetData() const override {
        ++reads;
        return ruk::intrusive_ptr<ruk::IIO>(new ScriptedStream(script_));
    }

    mutable int reads = 0;

private:
    bool exists_;
    StreamScript script_;
};

inline Bytes BytesOf(const std::string& text) {
    return Bytes(text.begin(), text.end());
}

}  // namespace ict_test
