#include <cstdio>
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
#include "support/host_tools.h"
#include "support/temp_dir.h"
#include "tool/check/fakes.h"
#include "tool/engine_helpers/trace_capture.h"

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

// The first word of a command's output, e.g. the digest printed by sha256sum.
std::string FirstWordOf(const std::string& command) {
    std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
    char text[256] = {};
    if (!pipe || std::fgets(text, sizeof(text), pipe.get()) == nullptr) {
        return "(no output from " + command + ")";
    }
    std::string line(text);
    return line.substr(0, line.find_first_of(" \n"));
}

std::string Evaluate(const IValueProvider& provider, const IDataObject& object) {
    std::vector<std::uint8_t> value{0xde, 0xad};  // replaced, not appended to
    provider.Evaluate(object, value);
    return check::ToHex(value);
}

TEST(Sha256Test, DigestsOfEmptySmallAndMultiBlockFiles) {
    ict_test::TempDir dir;
    const openssl::Sha256 sha256;
    ict_test::WriteText(dir / "empty", "");
    ict_test::WriteText(dir / "abc", "abc");
    EXPECT_EQ(Evaluate(sha256, data_object::File(dir / "empty")),
              "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    EXPECT_EQ(Evaluate(sha256, data_object::File(dir / "abc")),
              "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");

    // Crosses the 1 MiB block boundary; compared with an independent tool.
    ICT_NEEDS_LINUX_TOOL("sha256sum");
    std::vector<std::uint8_t> big(3 * 1024 * 1024 + 5);
    for (std::size_t index = 0; index < big.size(); ++index) {
        big[index] = static_cast<std::uint8_t>(index * 7 + index / 4096);
    }
    ict_test::WriteBytes(dir / "big", big);
    EXPECT_EQ(Evaluate(sha256, data_object::File(dir / "big")),
              FirstWordOf("sha256sum '" + (dir / "big").string() + "'"));
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
    try {
        openssl::Sha256().Evaluate(object, value);
        FAIL() << "no exception";
    } catch (const ruk::ResultException& error) {
        EXPECT_EQ(error.GetCode(), ruk::result::IoError);
    }
    EXPECT_THROW(check::RawValueProvider().Evaluate(object, value), ruk::ResultException);
}

}  // namespace
}  // namespace integrity_check_tool
