#include <cstdint>
#include <vector>

#include <gtest/gtest.h>

#include "storage/container_format.h"

namespace {

using storage::ContainerEncoding;
namespace format = storage::format;

std::vector<std::uint8_t> Encode(const std::vector<std::uint8_t>& content,
                                 ContainerEncoding encoding) {
    std::vector<std::uint8_t> file;
    EXPECT_EQ(format::EncodeContainer(content, encoding, &file), ruk::result::Success);
    return file;
}

TEST(ContainerFormatTest, HeaderTellsTheEncodingAndSize) {
    const std::vector<std::uint8_t> content(1000, 0x41);
    const auto compressed = Encode(content, ContainerEncoding::Compressed);
    ASSERT_GT(compressed.size(), format::kHeaderSize);
    EXPECT_TRUE(std::equal(format::kCompressedMagic.begin(), format::kCompressedMagic.end(),
                           compressed.begin()));
    // Size field: 1000 little endian.
    EXPECT_EQ(compressed[8], 0xE8);
    EXPECT_EQ(compressed[9], 0x03);

    format::Header header;
    ASSERT_EQ(
        format::ParseHeader(compressed.data(), format::kHeaderSize, compressed.size(), &header),
        ruk::result::Success);
    EXPECT_EQ(header.encoding, ContainerEncoding::Compressed);
    EXPECT_EQ(header.contentSize, 1000u);

    const auto raw = Encode(content, ContainerEncoding::Raw);
    EXPECT_EQ(raw, content);
    ASSERT_EQ(format::ParseHeader(raw.data(), format::kHeaderSize, raw.size(), &header),
              ruk::result::Success);
    EXPECT_EQ(header.encoding, ContainerEncoding::Raw);
    EXPECT_EQ(header.contentSize, 1000u);
}

TEST(ContainerFormatTest, ShortFilesAndPartialMagicAreRaw) {
    format::Header header;
    EXPECT_EQ(format::ParseHeader(nullptr, 0, 0, &header), ruk::result::Success);
    EXPECT_EQ(header.encoding, ContainerEncoding::Raw);
    EXPECT_EQ(header.contentSize, 0u);

    // The first seven magic bytes only: still raw content.
    const std::vector<std::uint8_t> partial(format::kCompressedMagic.begin(),
                                            format::kCompressedMagic.end() - 1);
    EXPECT_EQ(format::ParseHeader(partial.data(), partial.size(), partial.size(), &header),
              ruk::result::Success);
    EXPECT_EQ(header.encoding, ContainerEncoding::Raw);
}

TEST(ContainerFormatTest, ImpossibleHeadersAreCorrupt) {
    std::vector<std::uint8_t> file(format::kCompressedMagic.begin(),
                                   format::kCompressedMagic.end());
    format::Header header;
    // Magic without the size field.
    file.resize(12, 0);
    EXPECT_EQ(format::ParseHeader(file.data(), file.size(), file.size(), &header),
              ruk::result::InvalidFormat);

    // Ten stream bytes cannot inflate to more than 1032 * 10 + 64 bytes.
    file.resize(format::kHeaderSize + 10, 0);
    const std::uint64_t limit = 1032 * 10 + 64;
    for (int index = 0; index < 8; ++index) {
        file[8 + index] = static_cast<std::uint8_t>(limit >> (8 * index));
    }
    EXPECT_EQ(format::ParseHeader(file.data(), format::kHeaderSize, file.size(), &header),
              ruk::result::Success);
    file[8] = static_cast<std::uint8_t>((limit + 1) & 0xFF);
    EXPECT_EQ(format::ParseHeader(file.data(), format::kHeaderSize, file.size(), &header),
              ruk::result::InvalidFormat);
    // The largest size field must not overflow the check.
    std::fill(file.begin() + 8, file.begin() + 16, 0xFF);
    EXPECT_EQ(format::ParseHeader(file.data(), format::kHeaderSize, file.size(), &header),
              ruk::result::InvalidFormat);
}

TEST(ContainerFormatTest, RawContentThatLooksCompressedIsRefused) {
    std::vector<std::uint8_t> content(format::kCompressedMagic.begin(),
                                      format::kCompressedMagic.end());
    content.resize(40, 1);
    std::vector<std::uint8_t> file;
    EXPECT_EQ(format::EncodeContainer(content, ContainerEncoding::Raw, &file),
              ruk::result::InvalidArgument);
    EXPECT_TRUE(file.empty());
    EXPECT_EQ(format::EncodeContainer(content, ContainerEncoding::Compressed, &file),
              ruk::result::Success);
}

}  // namespace
