#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ruk/io.h"
#include "support/file_helpers.h"

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::uint64_t kSizeFails = std::numeric_limits<std::uint64_t>::max();

// A memory stream that reports a size of the test's choosing (or cannot tell
// it), counts the bytes handed out and can fail once it has handed out some.
class ScriptedIO : public ruk::MemoryIO {
public:
    ScriptedIO(Bytes data, std::uint64_t reportedSize, std::size_t failAfter)
        : MemoryIO(std::move(data)), reportedSize_(reportedSize), failAfter_(failAfter) {}

    ruk::result_t GetSize(std::uint64_t* size) override {
        if (reportedSize_ == kSizeFails) {
            return ruk::result::NotSupported;
        }
        *size = reportedSize_;
        return ruk::result::Success;
    }

    ruk::result_t Read(void* buffer, std::size_t size, std::size_t* read) override {
        if (handedOut_ >= failAfter_) {
            return ruk::result::IoError;
        }
        const ruk::result_t code = MemoryIO::Read(buffer, size, read);
        handedOut_ += *read;
        return code;
    }

    std::size_t HandedOut() const { return handedOut_; }

private:
    std::uint64_t reportedSize_;
    std::size_t failAfter_;
    std::size_t handedOut_ = 0;
};

TEST(RukReadWholeTest, ReadsFromTheStartToTheEndWithinTheLimit) {
    constexpr std::size_t kNoLimit = std::numeric_limits<std::size_t>::max();
    constexpr std::size_t kLarge = 200 * 1024 + 3;  // several blocks and a partial one
    const struct {
        const char* name;
        std::size_t contentSize;
        std::uint64_t reportedSize;
        std::size_t limit;
        std::size_t failAfter;
        ruk::result_t expected;
        std::size_t mostHandedOut;  // bytes the stream may have handed out
    } cases[] = {
        {"empty", 0, 0, kNoLimit, kNoLimit, ruk::result::Success, 0},
        {"size told", kLarge, kLarge, kNoLimit, kNoLimit, ruk::result::Success, kLarge},
        {"size unknown", kLarge, kSizeFails, kNoLimit, kNoLimit, ruk::result::Success, kLarge},
        {"grew since the size", kLarge, 10, kNoLimit, kNoLimit, ruk::result::Success, kLarge},
        {"shrank since the size", 10, kLarge, kNoLimit, kNoLimit, ruk::result::Success, 10},
        {"exactly the limit", kLarge, kLarge, kLarge, kNoLimit, ruk::result::Success, kLarge},
        {"told too large", kLarge, kLarge, kLarge - 1, kNoLimit, ruk::result::OutOfRange, 0},
        {"found too large", kLarge, kSizeFails, 1000, kNoLimit, ruk::result::OutOfRange, 1001},
        {"grew past the limit", kLarge, 10, 70000, kNoLimit, ruk::result::OutOfRange, 70001},
        {"read fails", kLarge, kLarge, kNoLimit, 100000, ruk::result::IoError, kLarge},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.name);
        const Bytes content = ict_test::PatternBytes(test.contentSize);
        ruk::intrusive_ptr<ScriptedIO> io(
            new ScriptedIO(content, test.reportedSize, test.failAfter));
        // Wherever the stream stands, the whole of it is read.
        ASSERT_EQ(io->Seek(static_cast<std::int64_t>(test.contentSize / 2), ruk::SeekOrigin::Begin,
                           nullptr),
                  ruk::result::Success);

        Bytes bytes = {'o', 'l', 'd'};
        EXPECT_EQ(ruk::ReadWhole(*io, test.limit, &bytes), test.expected);
        EXPECT_LE(io->HandedOut(), test.mostHandedOut);
        if (test.expected == ruk::result::Success) {
            EXPECT_EQ(bytes, content);
        } else {
            EXPECT_EQ(bytes, (Bytes{'o', 'l', 'd'}));
        }

        std::string text = "old";
        io->Seek(0, ruk::SeekOrigin::Begin, nullptr);
        EXPECT_EQ(ruk::ReadWhole(*io, test.limit, &text), test.expected);
        EXPECT_EQ(text, test.expected == ruk::result::Success
                            ? std::string(content.begin(), content.end())
                            : "old");
    }
}

TEST(RukReadWholeTest, RefusesANullTargetAndReportsAFailedSeek) {
    ruk::intrusive_ptr<ruk::IIO> io = ruk::CreateMemoryIO(ict_test::PatternBytes(10));
    EXPECT_EQ(ruk::ReadWhole(*io, 100, static_cast<Bytes*>(nullptr)), ruk::result::InvalidArgument);

    class Unseekable : public ruk::MemoryIO {
        ruk::result_t Seek(std::int64_t, ruk::SeekOrigin, std::uint64_t*) override {
            return ruk::result::NotSupported;
        }
    };
    ruk::intrusive_ptr<ruk::IIO> unseekable(new Unseekable());
    Bytes bytes;
    EXPECT_EQ(ruk::ReadWhole(*unseekable, 100, &bytes), ruk::result::NotSupported);
}

}  // namespace
