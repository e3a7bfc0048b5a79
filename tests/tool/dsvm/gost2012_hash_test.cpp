#include <gtest/gtest.h>

#include "dsvm/gost2012_hash.h"
#include "ruk/exception.h"
#include "ruk/io.h"
#include "support/thrown.h"
#include "support/trace_capture.h"

namespace integrity_check_tool::dsvm {
namespace {

// A data object over bytes in memory, or one whose stream fails to read.
class MemoryObject : public IDataObject {
public:
    explicit MemoryObject(std::vector<std::uint8_t> bytes, bool failing = false)
        : bytes_(std::move(bytes)), failing_(failing) {}
    std::string GetTypeName() const override { return "File"; }
    bool IsExists() const override { return true; }
    ruk::intrusive_ptr<ruk::IIO> GetData() const override {
        if (failing_) {
            return ruk::intrusive_ptr<ruk::IIO>(new FailingIO());
        }
        return ruk::CreateMemoryIO(bytes_);
    }

private:
    struct FailingIO : ruk::MemoryIO {
        ruk::result_t Read(void*, std::size_t, std::size_t*) override {
            return ruk::result::AccessDenied;
        }
    };
    std::vector<std::uint8_t> bytes_;
    bool failing_;
};

std::string Hex(const std::vector<std::uint8_t>& bytes) {
    static const char kDigits[] = "0123456789abcdef";
    std::string text;
    for (const auto byte : bytes) {
        text += kDigits[byte >> 4];
        text += kDigits[byte & 0xF];
    }
    return text;
}

TEST(DsvmGost2012HashTest, DigestsEveryByteLikeTheOpenSslGostEngine) {
    ict_test::TraceCapture trace;
    const Gost2012Hash hash(trace.Tracer());
    EXPECT_EQ(hash.GetName(), "Gost2012Hash");

    std::vector<std::uint8_t> value{7};
    hash.Evaluate(MemoryObject({}), value);
    // `printf '' | openssl dgst -engine gost -md_gost12_256`
    EXPECT_EQ(Hex(value), "3f539a213e97c802cc229d474c6aa32a825a360b2a933a949fd925208d9ce1bb");

    // Larger than one read block, so the digest spans several updates.
    std::vector<std::uint8_t> big(3 * 1024 * 1024 + 5, 0x61);
    hash.Evaluate(MemoryObject(big), value);
    const std::vector<std::uint8_t> first = value;
    big.back() = 0x62;
    hash.Evaluate(MemoryObject(big), value);
    EXPECT_NE(value, first);
    EXPECT_EQ(value.size(), 32u);
}

TEST(DsvmGost2012HashTest, AFailingReadRaisesTheStreamResult) {
    ict_test::TraceCapture trace;
    std::vector<std::uint8_t> value;
    const auto error = ict_test::Caught<ruk::ResultException>(
        [&] { Gost2012Hash(trace.Tracer()).Evaluate(MemoryObject({1}, true), value); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->GetCode(), ruk::result::AccessDenied);
}

}  // namespace
}  // namespace integrity_check_tool::dsvm
