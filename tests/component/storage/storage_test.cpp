#include <algorithm>
#include <cstdint>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <boost/filesystem.hpp>

#include "storage/container_format.h"
#include "storage/container_writer.h"
#include "storage/storage.h"
#include "support/file_helpers.h"
#include "support/temp_dir.h"

namespace {

namespace fs = boost::filesystem;
namespace format = storage::format;
using storage::ContainerEncoding;
using Bytes = std::vector<std::uint8_t>;

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

Bytes RandomBytes(std::size_t size, unsigned seed) {
    std::mt19937 engine(seed);
    Bytes bytes(size);
    for (auto& byte : bytes) {
        // Few distinct values: compressible, yet not trivially so.
        byte = static_cast<std::uint8_t>(engine() % 7);
    }
    return bytes;
}

class DirectoryStorageTest : public ::testing::Test {
protected:
    storage::IContainerPtr Open(const std::string& name, ruk::result_t expected) {
        storage::IStoragePtr opened;
        EXPECT_EQ(storage::OpenDirectoryStorage(directory_, &opened), ruk::result::Success);
        storage::IContainerPtr container;
        EXPECT_EQ(opened->OpenContainer(name, &container), expected);
        return container;
    }

    // Reads the whole container in chunks of `chunk` bytes; the last result
    // code goes to `code`.
    Bytes ReadAll(storage::IContainer& container, std::size_t chunk, ruk::result_t* code) {
        Bytes content;
        Bytes buffer(chunk);
        for (;;) {
            std::size_t read = 0;
            *code = container.Read(buffer.data(), buffer.size(), &read);
            content.insert(content.end(), buffer.begin(), buffer.begin() + read);
            if (ruk::Failed(*code) || read < chunk) {
                return content;
            }
        }
    }

    ict_test::TempDir temp_;
    const fs::path& directory_ = temp_.Path();
};

TEST_F(DirectoryStorageTest, BothEncodingsRoundTripInAnyChunkSize) {
    const Bytes large = RandomBytes(3 * 1024 * 1024 + 17, 1);
    for (const Bytes& content : {Bytes{}, large}) {
        for (const auto encoding : {ContainerEncoding::Raw, ContainerEncoding::Compressed}) {
            ASSERT_EQ(storage::WriteContainer(directory_, "data.rdb", content, encoding),
                      ruk::result::Success);
            for (const std::size_t chunk : {std::size_t{1000003}, std::size_t{1} << 22}) {
                auto container = Open("data.rdb", ruk::result::Success);
                ASSERT_TRUE(container);
                EXPECT_EQ(container->GetEncoding(), encoding);
                std::uint64_t size = 1;
                ASSERT_EQ(container->GetSize(&size), ruk::result::Success);
                EXPECT_EQ(size, content.size());
                ruk::result_t code = ruk::result::Fail;
                EXPECT_EQ(ReadAll(*container, chunk, &code), content);
                EXPECT_EQ(code, ruk::result::Success);
            }
        }
    }
    // The compressed file is the smaller one and the writer left no temporaries.
    EXPECT_LT(fs::file_size(directory_ / "data.rdb"), large.size() / 2);
    EXPECT_EQ(std::distance(fs::directory_iterator(directory_), fs::directory_iterator()), 1);
}

TEST_F(DirectoryStorageTest, DamagedCompressedStreamsFailEveryRead) {
    const Bytes content = RandomBytes(200000, 2);
    Bytes good;
    ASSERT_EQ(format::EncodeContainer(content, ContainerEncoding::Compressed, &good),
              ruk::result::Success);

    using Damage = std::function<void(Bytes&)>;
    const std::vector<std::pair<const char*, Damage>> damages = {
        {"flipped byte", [](Bytes& b) { b[b.size() / 2] ^= 0x5A; }},
        {"truncated", [](Bytes& b) { b.resize(b.size() - 20); }},
        {"bad checksum", [](Bytes& b) { b.back() ^= 1; }},
        {"bytes after the stream", [](Bytes& b) { b.push_back(0); }},
        // The stream produces one byte more, or one less, than declared.
        {"longer than declared", [](Bytes& b) { b[8] -= 1; }},
        {"shorter than declared", [](Bytes& b) { b[8] += 1; }},
        {"not zlib", [](Bytes& b) { std::fill(b.begin() + format::kHeaderSize, b.end(), 0xEE); }},
    };
    for (const auto& [what, damage] : damages) {
        SCOPED_TRACE(what);
        Bytes file = good;
        damage(file);
        ict_test::WriteBytes(directory_ / "damaged", file);
        auto container = Open("damaged", ruk::result::Success);
        ASSERT_TRUE(container);
        ruk::result_t code = ruk::result::Success;
        ReadAll(*container, 65536, &code);
        EXPECT_EQ(code, ruk::result::InvalidFormat);
        std::uint8_t byte = 0;
        std::size_t read = 1;
        EXPECT_EQ(container->Read(&byte, 1, &read), ruk::result::InvalidFormat);
        EXPECT_EQ(read, 0u);
    }
    // A size no stream can give fails on opening.
    Bytes huge(format::kCompressedMagic.begin(), format::kCompressedMagic.end());
    huge.resize(format::kHeaderSize, 0xFF);
    ict_test::WriteBytes(directory_ / "huge", huge);
    EXPECT_FALSE(Open("huge", ruk::result::InvalidFormat));
}

TEST_F(DirectoryStorageTest, NamesAndPathsAreChecked) {
    ASSERT_EQ(storage::WriteContainer(directory_, "present", {1, 2, 3}, ContainerEncoding::Raw),
              ruk::result::Success);
    const std::vector<std::string> badNames = {
        "", ".", "..", "../present", "sub/present", "a\\b", "c:d", std::string("pre\0sent", 8)};
    for (const std::string& name : badNames) {
        SCOPED_TRACE(name);
        Open(name, ruk::result::InvalidArgument);
        EXPECT_EQ(storage::WriteContainer(directory_, name, {1}, ContainerEncoding::Raw),
                  ruk::result::InvalidArgument);
    }
    Open("absent", ruk::result::NotFound);
    fs::create_directory(directory_ / "folder");
    Open("folder", ruk::result::InvalidArgument);

    storage::IStoragePtr opened;
    EXPECT_EQ(storage::OpenDirectoryStorage(directory_ / "missing", &opened),
              ruk::result::NotFound);
    EXPECT_EQ(storage::OpenDirectoryStorage(directory_ / "present", &opened),
              ruk::result::InvalidArgument);
    EXPECT_FALSE(opened);
    EXPECT_EQ(storage::WriteContainer(directory_ / "missing", "x", {1}, ContainerEncoding::Raw),
              ruk::result::NotFound);
}

}  // namespace
