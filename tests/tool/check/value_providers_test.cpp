#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "check/empty_value_provider.h"
#include "check/hex.h"
#include "check/raw_value_provider.h"
#include "check/stream_compare.h"
#include "common/exception.h"
#include "openssl/sha256.h"
#include "ruk/exception.h"
#include "support/file_helpers.h"
#include "support/manifest_text.h"
#include "support/thrown.h"
#include "tool/check/fakes.h"
#include "utils/read_blocks.h"

namespace integrity_check_tool {
namespace {

using ict_test::Bytes;
using ict_test::FakeDataObject;
using ict_test::PatternBytes;
using ict_test::ScriptedStream;
using ict_test::Size;

std::string Evaluate(const IValueProvider& provider, const IDataObject& object) {
    Bytes value{0xde, 0xad};  // replaced, not appended to
    provider.Evaluate(object, value);
    return check::ToHex(value);
}

TEST(StreamHoldsTest, ComparesSizeFirstThenBlocksAndNeverReadsFarPastTheExpected) {
    const Bytes big = PatternBytes(300 * 1024);
    Bytes lastDiffers = big;
    lastDiffers.back() ^= 1;
    struct Case {
        const char* name;
        Bytes content;
        Size claimedSize;
        bool endless;
        Bytes expected;
        bool holds;
        std::size_t mostRead;  // bytes read at most
    };
    const std::vector<Case> cases = {
        {"equal, several blocks", big, big.size(), false, big, true, big.size()},
        {"last byte differs", lastDiffers, big.size(), false, big, false, big.size()},
        {"known other size: nothing read", big, 3ull << 30, false, PatternBytes(3), false, 0},
        {"unknown size, endless stream", Bytes(1, 0), {}, true, Bytes(10, 0), false, 11},
        {"unknown size, equal", PatternBytes(5), {}, false, PatternBytes(5), true, 5},
        {"unknown size, shorter", PatternBytes(4), {}, false, PatternBytes(5), false, 4},
        {"no size reported but content", PatternBytes(7), 0, false, PatternBytes(7), true, 7},
        {"empty against empty", Bytes(), 0, false, Bytes(), true, 0},
        {"empty against a value", Bytes(), 0, false, PatternBytes(2), false, 0},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.name);
        ScriptedStream stream(test.content, test.claimedSize, test.endless);
        EXPECT_EQ(check::StreamHolds(stream, test.expected), test.holds);
        EXPECT_LE(stream.bytesRead, test.mostRead);
        // Never more than one block held, and no more than one byte past the value.
        EXPECT_LE(stream.largestRequest, 64u * 1024);
        EXPECT_LE(stream.largestRequest, test.expected.size() + 1);
    }
    ScriptedStream failing(PatternBytes(1), {}, false, 0);
    EXPECT_THROW(check::StreamHolds(failing, PatternBytes(1)), ruk::ResultException);
}

// Sizes about the page and the 1 MiB block that reads are sized by, the
// largest first so that the thread's buffer is left at its largest. A size
// that says less or more than the stream holds (a file that grows or shrinks
// while it is read, a procfs file that reports none) only sizes the reads.
TEST(Sha256Test, DigestsEveryByteWhateverTheSizeSays) {
    const Bytes big = PatternBytes(3 * 1024 * 1024 + 5);
    const std::size_t mebibyte = 1024 * 1024;
    for (const std::size_t size :
         {big.size(), std::size_t{0}, std::size_t{3}, std::size_t{4095}, std::size_t{4096},
          std::size_t{4097}, mebibyte - 1, mebibyte, mebibyte + 1}) {
        const std::string bytes(big.begin(), big.begin() + static_cast<std::ptrdiff_t>(size));
        for (const Size reported : {Size(size), Size(), Size(size / 2), Size(size + 1)}) {
            EXPECT_EQ(Evaluate(openssl::Sha256(),
                               FakeDataObject(true, Bytes(bytes.begin(), bytes.end()), reported)),
                      ict_test::Sha256Hex(bytes))
                << size << " reported as " << reported.value_or(0);
        }
    }
    EXPECT_EQ(ict_test::Sha256Hex(""),
              "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
}

// A read that starts while the thread's block is in use (a provider reading
// inside another's consumer) gets a block of its own.
TEST(ReadBlocksTest, NestedReadsKeepTheirOwnBlocks) {
    ruk::MemoryIO outer(Bytes(5000, 'o'));
    std::string seen;
    const auto append = [&](const std::uint8_t* data, std::size_t size) {
        seen.append(data, data + size);
    };
    ASSERT_EQ(ReadBlocks(outer, 4096,
                         [&](const std::uint8_t* data, std::size_t size) {
                             ruk::MemoryIO inner(Bytes(3, 'i'));
                             EXPECT_EQ(ReadBlocks(inner, 4096, append), ruk::result::Success);
                             append(data, size);
                         }),
              ruk::result::Success);
    EXPECT_EQ(seen, "iii" + std::string(4096, 'o') + "iii" + std::string(904, 'o'));
}

TEST(ValueProvidersTest, RawGivesEveryByteUpToItsLimitAndEmptyNeverReads) {
    EXPECT_EQ(Evaluate(check::RawValueProvider(), FakeDataObject(true, {0x2a, 0, 0, 0})),
              "2a000000");
    const FakeDataObject untouched(true, Bytes(1));
    EXPECT_EQ(Evaluate(check::EmptyValueProvider(), untouched), "");
    EXPECT_EQ(untouched.reads, 0);

    const std::string limit = std::to_string(check::RawValueProvider::kMaxSize);
    const std::uint64_t huge = 3ull << 30;
    const struct {
        FakeDataObject object;
        std::string message;
    } cases[] = {
        {FakeDataObject(true, PatternBytes(4096), huge), "The value is " + std::to_string(huge) +
                                                             " bytes long; a Value holds at most " +
                                                             limit + " bytes"},
        // No size, but no end either: stopped at the first block past the limit.
        {FakeDataObject(true, PatternBytes(4096), {}, true),
         " bytes long; a Value holds at most " + limit + " bytes"},
    };
    for (const auto& test : cases) {
        EXPECT_THAT(
            ict_test::ThrownText<Exception>(
                [&] { Evaluate(check::RawValueProvider(), test.object); }),
            testing::AllOf(testing::StartsWith("The value is "), testing::EndsWith(test.message)));
    }
}

TEST(ValueProvidersTest, FailingReadRaisesFrameworkResult) {
    // The first read gives bytes, the second fails.
    const FakeDataObject object(true, PatternBytes(100), 100, false, 1);
    Bytes value;
    const auto error =
        ict_test::Caught<ruk::ResultException>([&] { openssl::Sha256().Evaluate(object, value); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->GetCode(), ruk::result::IoError);
    EXPECT_THROW(check::RawValueProvider().Evaluate(object, value), ruk::ResultException);
}

}  // namespace
}  // namespace integrity_check_tool
