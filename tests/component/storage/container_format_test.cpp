#include <algorithm>
#include <cstdint>
#include <vector>

#include <gtest/gtest.h>

#include "storage/container_format.h"

namespace {

using storage::ContainerEncoding;
using Bytes = std::vector<std::uint8_t>;
namespace format = storage::format;

// The compressed magic followed by the size field `size` and `streamSize`
// stream bytes.
Bytes CompressedHeader(std::uint64_t size, std::size_t streamSize) {
    Bytes file(format::kCompressedMagic.begin(), format::kCompressedMagic.end());
    for (int index = 0; index < 8; ++index) {
        file.push_back(static_cast<std::uint8_t>(size >> (8 * index)));
    }
    file.resize(file.size() + streamSize, 0);
    return file;
}

TEST(ContainerFormatTest, HeadersTellTheEncodingAndSizeOrAreCorrupt) {
    Bytes encoded;
    ASSERT_EQ(format::EncodeContainer(Bytes(1000, 0x41), ContainerEncoding::Compressed, &encoded),
              ruk::result::Success);
    EXPECT_EQ(Bytes(encoded.begin(), encoded.begin() + format::kHeaderSize),
              CompressedHeader(1000, 0));
    const Bytes partialMagic(format::kCompressedMagic.begin(), format::kCompressedMagic.end() - 1);
    // Ten stream bytes cannot inflate to more than 1032 * 10 + 64 bytes.
    const std::uint64_t limit = 1032 * 10 + 64;
    const struct {
        const char* what;
        Bytes file;
        ruk::result_t result;
        ContainerEncoding encoding = ContainerEncoding::Raw;
        std::uint64_t contentSize = 0;
    } cases[] = {
        {"compressed", encoded, ruk::result::Success, ContainerEncoding::Compressed, 1000},
        {"raw", Bytes(1000, 0x41), ruk::result::Success, ContainerEncoding::Raw, 1000},
        {"empty", {}, ruk::result::Success, ContainerEncoding::Raw, 0},
        {"seven magic bytes", partialMagic, ruk::result::Success, ContainerEncoding::Raw, 7},
        {"magic without the size field", Bytes(encoded.begin(), encoded.begin() + 12),
         ruk::result::InvalidFormat},
        {"the largest size a stream gives", CompressedHeader(limit, 10), ruk::result::Success,
         ContainerEncoding::Compressed, limit},
        {"one byte more", CompressedHeader(limit + 1, 10), ruk::result::InvalidFormat},
        // The largest size field must not overflow the check.
        {"size 2^64-1", CompressedHeader(UINT64_MAX, 10), ruk::result::InvalidFormat},
    };
    for (const auto& test : cases) {
        SCOPED_TRACE(test.what);
        format::Header header;
        const std::size_t prefix = std::min(test.file.size(), format::kHeaderSize);
        ASSERT_EQ(format::ParseHeader(test.file.data(), prefix, test.file.size(), &header),
                  test.result);
        if (test.result == ruk::result::Success) {
            EXPECT_EQ(header.encoding, test.encoding);
            EXPECT_EQ(header.contentSize, test.contentSize);
        }
    }
}

TEST(ContainerFormatTest, RawContentIsTheFileUnlessItLooksCompressed) {
    Bytes file;
    ASSERT_EQ(format::EncodeContainer({1, 2, 3}, ContainerEncoding::Raw, &file),
              ruk::result::Success);
    EXPECT_EQ(file, (Bytes{1, 2, 3}));
    Bytes content(format::kCompressedMagic.begin(), format::kCompressedMagic.end());
    content.resize(40, 1);
    file.clear();
    EXPECT_EQ(format::EncodeContainer(content, ContainerEncoding::Raw, &file),
              ruk::result::InvalidArgument);
    EXPECT_TRUE(file.empty());
    EXPECT_EQ(format::EncodeContainer(content, ContainerEncoding::Compressed, &file),
              ruk::result::Success);
}

}  // namespace
