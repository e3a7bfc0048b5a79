#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "ruk/io.h"

namespace {

using Bytes = std::vector<std::uint8_t>;

Bytes ToBytes(const std::string& text) {
    return Bytes(text.begin(), text.end());
}

TEST(RukMemoryIoTest, ReadsShortAtTheEndAndSeeksFromEveryOrigin) {
    auto io = ruk::CreateMemoryIO(ToBytes("abcdef"));
    char buffer[4] = {};
    std::size_t read = 0;
    ASSERT_EQ(io->Read(buffer, 4, &read), ruk::result::Success);
    EXPECT_EQ(read, 4u);
    EXPECT_EQ(std::string(buffer, read), "abcd");
    ASSERT_EQ(io->Read(buffer, 4, &read), ruk::result::Success);
    EXPECT_EQ(std::string(buffer, read), "ef");
    ASSERT_EQ(io->Read(buffer, 4, &read), ruk::result::Success);
    EXPECT_EQ(read, 0u);

    std::uint64_t position = 99;
    ASSERT_EQ(io->Seek(1, ruk::SeekOrigin::Begin, &position), ruk::result::Success);
    EXPECT_EQ(position, 1u);
    ASSERT_EQ(io->Seek(2, ruk::SeekOrigin::Current, &position), ruk::result::Success);
    EXPECT_EQ(position, 3u);
    ASSERT_EQ(io->Read(buffer, 1, &read), ruk::result::Success);
    EXPECT_EQ(buffer[0], 'd');
    ASSERT_EQ(io->Seek(-2, ruk::SeekOrigin::End, &position), ruk::result::Success);
    EXPECT_EQ(position, 4u);

    // Before the start is refused and leaves the position alone.
    EXPECT_EQ(io->Seek(-7, ruk::SeekOrigin::End, &position), ruk::result::InvalidArgument);
    EXPECT_EQ(
        io->Seek(std::numeric_limits<std::int64_t>::max(), ruk::SeekOrigin::Current, &position),
        ruk::result::InvalidArgument);
    ASSERT_EQ(io->Read(buffer, 1, &read), ruk::result::Success);
    EXPECT_EQ(buffer[0], 'e');
}

// Hands out at most one byte per call, then optionally fails.
class TricklingIO : public ruk::MemoryIO {
public:
    TricklingIO(Bytes data, std::size_t failAfter) : MemoryIO(std::move(data)), left_(failAfter) {}

    ruk::result_t Read(void* buffer, std::size_t size, std::size_t* read) override {
        if (left_ == 0) {
            return ruk::result::IoError;
        }
        --left_;
        return MemoryIO::Read(buffer, size < 1 ? size : 1, read);
    }

private:
    std::size_t left_;
};

TEST(RukMemoryIoTest, ReadFullyCollectsShortReadsAndStopsAtEndOrError) {
    ruk::intrusive_ptr<ruk::IIO> trickling(new TricklingIO(ToBytes("xyz"), 100));
    char buffer[8] = {};
    std::size_t read = 0;
    ASSERT_EQ(ruk::ReadFully(*trickling, buffer, 2, &read), ruk::result::Success);
    EXPECT_EQ(std::string(buffer, read), "xy");
    ASSERT_EQ(ruk::ReadFully(*trickling, buffer, 8, &read), ruk::result::Success);
    EXPECT_EQ(std::string(buffer, read), "z");

    ruk::intrusive_ptr<ruk::IIO> failing(new TricklingIO(ToBytes("xyz"), 2));
    EXPECT_EQ(ruk::ReadFully(*failing, buffer, 3, &read), ruk::result::IoError);
    EXPECT_EQ(read, 2u);
}

}  // namespace
