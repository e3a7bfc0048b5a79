#include "check/stream_compare.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "check/raw_value_provider.h"
#include "common/exception.h"
#include "fakes.h"
#include "ruk/exception.h"
#include "support/file_helpers.h"

namespace integrity_check_tool::check {
namespace {

using Bytes = std::vector<std::uint8_t>;

// A stream of `content` that may claim another size or none, and may repeat
// its content without end; it counts what was asked of it.
class ScriptedStream : public ruk::IIO {
public:
    ScriptedStream(Bytes content, bool sizeKnown, std::uint64_t claimedSize, bool endless)
        : content_(std::move(content)),
          sizeKnown_(sizeKnown),
          claimedSize_(claimedSize),
          endless_(endless) {}

    ruk::result_t Read(void* buffer, std::size_t size, std::size_t* read) override {
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
    ruk::result_t Write(const void*, std::size_t, std::size_t*) override {
        return ruk::result::NotSupported;
    }
    ruk::result_t Seek(std::int64_t, ruk::SeekOrigin, std::uint64_t*) override {
        return ruk::result::NotSupported;
    }
    ruk::result_t GetSize(std::uint64_t* size) override {
        if (!sizeKnown_) {
            return ruk::result::NotSupported;
        }
        *size = claimedSize_;
        return ruk::result::Success;
    }
    ruk::result_t SetSize(std::uint64_t) override { return ruk::result::NotSupported; }
    ruk::result_t Flush() override { return ruk::result::Success; }

    std::size_t bytesRead = 0;
    std::size_t largestRequest = 0;

private:
    Bytes content_;
    bool sizeKnown_;
    std::uint64_t claimedSize_;
    bool endless_;
    std::size_t position_ = 0;
};

TEST(StreamHoldsTest, ComparesSizeFirstThenBlocksAndNeverReadsFarPastTheExpected) {
    const Bytes big = ict_test::PatternBytes(300 * 1024);
    Bytes lastDiffers = big;
    lastDiffers.back() ^= 1;
    struct Case {
        const char* name;
        Bytes content;
        bool sizeKnown;
        std::uint64_t claimedSize;
        bool endless;
        Bytes expected;
        bool holds;
        std::size_t mostRead;  // bytes read at most
    };
    const std::vector<Case> cases = {
        {"equal, several blocks", big, true, big.size(), false, big, true, big.size()},
        {"last byte differs", lastDiffers, true, big.size(), false, big, false, big.size()},
        {"known other size: nothing read", big, true, 3u * 1024 * 1024 * 1024, false,
         ict_test::PatternBytes(3), false, 0},
        {"unknown size, endless stream", Bytes(1, 0), false, 0, true, Bytes(10, 0), false, 11},
        {"unknown size, equal", ict_test::PatternBytes(5), false, 0, false,
         ict_test::PatternBytes(5), true, 5},
        {"unknown size, shorter", ict_test::PatternBytes(4), false, 0, false,
         ict_test::PatternBytes(5), false, 4},
        {"no size reported but content", ict_test::PatternBytes(7), true, 0, false,
         ict_test::PatternBytes(7), true, 7},
        {"empty against empty", Bytes(), true, 0, false, Bytes(), true, 0},
        {"empty against a value", Bytes(), true, 0, false, ict_test::PatternBytes(2), false, 0},
    };
    for (const auto& test : cases) {
        ScriptedStream stream(test.content, test.sizeKnown, test.claimedSize, test.endless);
        EXPECT_EQ(StreamHolds(stream, test.expected), test.holds) << test.name;
        EXPECT_LE(stream.bytesRead, test.mostRead) << test.name;
        // Never more than one block held, and no more than one byte past the value.
        EXPECT_LE(stream.largestRequest, 64u * 1024) << test.name;
        EXPECT_LE(stream.largestRequest, test.expected.size() + 1) << test.name;
    }
}

TEST(StreamHoldsTest, AFailingReadRaisesTheFrameworkResult) {
    class Failing : public ScriptedStream {
    public:
        Failing() : ScriptedStream({}, false, 0, false) {}
        ruk::result_t Read(void*, std::size_t, std::size_t*) override {
            return ruk::result::IoError;
        }
    } stream;
    EXPECT_THROW(StreamHolds(stream, ict_test::PatternBytes(1)), ruk::ResultException);
}

// A data object over a ScriptedStream.
class StreamObject : public IDataObject {
public:
    StreamObject(bool sizeKnown, std::uint64_t claimedSize, bool endless)
        : sizeKnown_(sizeKnown), claimedSize_(claimedSize), endless_(endless) {}
    std::string GetTypeName() const override { return "Stream"; }
    bool IsExists() const override { return true; }
    ruk::intrusive_ptr<ruk::IIO> GetData() const override {
        return ruk::intrusive_ptr<ruk::IIO>(
            new ScriptedStream(ict_test::PatternBytes(4096), sizeKnown_, claimedSize_, endless_));
    }

private:
    bool sizeKnown_;
    std::uint64_t claimedSize_;
    bool endless_;
};

TEST(RawValueProviderTest, RefusesValuesLongerThanItCanHold) {
    const std::string limit = std::to_string(RawValueProvider::kMaxSize);
    struct Case {
        const char* name;
        StreamObject object;
        std::string message;
    };
    const std::uint64_t huge = 3ull * 1024 * 1024 * 1024;
    const std::vector<Case> cases = {
        {"a size above the limit", StreamObject(true, huge, false),
         "The value is " + std::to_string(huge) + " bytes long; a Value holds at most " + limit +
             " bytes"},
        // Stopped at the first block past the limit, whatever its size.
        {"no size, but no end either", StreamObject(false, 0, true),
         " bytes long; a Value holds at most " + limit + " bytes"},
    };
    for (const auto& test : cases) {
        std::vector<std::uint8_t> value;
        try {
            RawValueProvider().Evaluate(test.object, value);
            ADD_FAILURE() << test.name << ": no exception";
        } catch (const Exception& error) {
            EXPECT_THAT(error.GetMessage(), testing::StartsWith("The value is ")) << test.name;
            EXPECT_THAT(error.GetMessage(), testing::EndsWith(test.message)) << test.name;
        }
    }
    std::vector<std::uint8_t> value;
    RawValueProvider().Evaluate(StreamObject(true, 4096, false), value);
    EXPECT_EQ(value, ict_test::PatternBytes(4096));
}

}  // namespace
}  // namespace integrity_check_tool::check
