#include <memory>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "check/empty_value_provider.h"
#include "check/hex.h"
#include "check/raw_value_provider.h"
#include "data_object/file.h"
#include "openssl/sha256.h"
#include "ruk/exception.h"
#include "support/file_helpers.h"
#include "support/manifest_text.h"
#include "support/temp_dir.h"
#include "support/thrown.h"
#include "tool/check/fakes.h"
#include "utils/read_blocks.h"

namespace integrity_check_tool {
namespace {

using ict_test::BytesOf;

class MockDataObject : public IDataObject {
public:
    MOCK_METHOD(std::string, GetTypeName, (), (const, override));
    MOCK_METHOD(bool, IsExists, (), (const, override));
    MOCK_METHOD(ruk::intrusive_ptr<ruk::IIO>, GetData, (), (const, override));
};

// A stream that fails on its second read.
class FailingIO : public ruk::MemoryIO {
public:
    ruk::result_t Read(void* buffer, std::size_t size, std::size_t* read) override {
        if (reads_++ == 0) {
            static_cast<char*>(buffer)[0] = 'x';
            *read = size > 0 ? 1 : 0;
            return ruk::result::Success;
        }
        return ruk::result::IoError;
    }

private:
    int reads_ = 0;
};

std::string Evaluate(const IValueProvider& provider, const IDataObject& object) {
    std::vector<std::uint8_t> value{0xde, 0xad};  // replaced, not appended to
    provider.Evaluate(object, value);
    return check::ToHex(value);
}

// Sizes about the page and the 1 MiB block that reads are sized by, the
// largest first so that the thread's buffer is left at its largest.
TEST(Sha256Test, DigestsEveryByteOfFilesOfEverySize) {
    ict_test::TempDir dir;
    std::string big(3 * 1024 * 1024 + 5, '\0');
    for (std::size_t index = 0; index < big.size(); ++index) {
        big[index] = static_cast<char>(index * 7 + index / 4096);
    }
    for (const std::size_t size :
         {big.size(), std::size_t{0}, std::size_t{3}, std::size_t{4095}, std::size_t{4096},
          std::size_t{4097}, std::size_t{1024 * 1024 - 1}, std::size_t{1024 * 1024},
          std::size_t{1024 * 1024 + 1}}) {
        const auto path = dir / ("sized" + std::to_string(size));
        ict_test::WriteText(path, big.substr(0, size));
        EXPECT_EQ(Evaluate(openssl::Sha256(), data_object::File(path)),
                  ict_test::Sha256Hex(big.substr(0, size)))
            << size;
    }
    EXPECT_EQ(ict_test::Sha256Hex(""),
              "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
}

// A stream whose size says less or more than it holds (a file that grows or
// shrinks while it is read, a procfs file that reports none): the size only
// sizes the reads, every byte there is is read.
class MisreportingIO : public ruk::MemoryIO {
public:
    MisreportingIO(std::vector<std::uint8_t> data, std::uint64_t size)
        : MemoryIO(std::move(data)), size_(size) {}
    ruk::result_t GetSize(std::uint64_t* size) override {
        *size = size_;
        return ruk::result::Success;
    }

private:
    std::uint64_t size_;
};

TEST(Sha256Test, ReadsEveryByteWhateverTheSizeSays) {
    const std::vector<std::uint8_t> bytes(100000, 'a');
    const std::string expected = Evaluate(openssl::Sha256(), ict_test::FakeDataObject(true, bytes));
    for (const std::uint64_t reported : {0ull, 10ull, 99999ull, 100001ull, 1ull << 40}) {
        MockDataObject object;
        EXPECT_CALL(object, GetData()).WillOnce([&] {
            return ruk::intrusive_ptr<ruk::IIO>(new MisreportingIO(bytes, reported));
        });
        EXPECT_EQ(Evaluate(openssl::Sha256(), object), expected) << reported;
    }
}

// A read that starts while the thread's block is in use (a provider reading
// inside another's consumer) gets a block of its own.
TEST(ReadBlocksTest, NestedReadsKeepTheirOwnBlocks) {
    const auto outer = ruk::MakeIntrusive<ruk::MemoryIO>(std::vector<std::uint8_t>(5000, 'o'));
    std::string seen;
    ASSERT_EQ(
        ReadBlocks(*outer, 4096,
                   [&](const std::uint8_t* data, std::size_t size) {
                       const auto inner =
                           ruk::MakeIntrusive<ruk::MemoryIO>(std::vector<std::uint8_t>(3, 'i'));
                       ASSERT_EQ(
                           ReadBlocks(*inner, 4096,
                                      [&](const std::uint8_t* innerData, std::size_t innerSize) {
                                          seen.append(innerData, innerData + innerSize);
                                      }),
                           ruk::result::Success);
                       seen.append(data, data + size);
                   }),
        ruk::result::Success);
    EXPECT_EQ(seen, "iii" + std::string(4096, 'o') + "iii" + std::string(904, 'o'));
}

TEST(ValueProvidersTest, RawGivesEveryByteAndEmptyNeverReads) {
    const check::RawValueProvider raw;
    const ict_test::FakeDataObject dword(true, {0x2a, 0, 0, 0});
    EXPECT_EQ(Evaluate(raw, dword), "2a000000");
    EXPECT_EQ(raw.GetName(), "Raw");

    const check::EmptyValueProvider empty;
    testing::StrictMock<MockDataObject> untouched;  // any call fails the test
    EXPECT_EQ(Evaluate(empty, untouched), "");
    EXPECT_EQ(empty.GetName(), "Empty");
}

TEST(ValueProvidersTest, FailingReadRaisesFrameworkResult) {
    MockDataObject object;
    EXPECT_CALL(object, GetData()).WillRepeatedly([] {
        return ruk::intrusive_ptr<ruk::IIO>(new FailingIO());
    });
    std::vector<std::uint8_t> value;
    const auto error =
        ict_test::Caught<ruk::ResultException>([&] { openssl::Sha256().Evaluate(object, value); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->GetCode(), ruk::result::IoError);
    EXPECT_THROW(check::RawValueProvider().Evaluate(object, value), ruk::ResultException);
}

}  // namespace
}  // namespace integrity_check_tool
