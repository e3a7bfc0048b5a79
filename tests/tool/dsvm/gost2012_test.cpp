#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <boost/exception/diagnostic_information.hpp>

#include "arguments/checker.h"
#include "check/hex.h"
#include "dsvm/exception.h"
#include "dsvm/gost2012.h"
#include "dsvm/gost2012_hash.h"
#include "dsvm/gost2012_signature_verifier.h"
#include "dsvm_fixture.h"
#include "factory/factory.h"
#include "ruk/exception.h"
#include "support/file_helpers.h"
#include "support/temp_dir.h"
#include "support/thrown.h"
#include "support/trace_capture.h"
#include "tool/check/fakes.h"

namespace integrity_check_tool::dsvm {
namespace {

using ict_test::Bytes;
using ict_test::FakeDataObject;
using testing::HasSubstr;

class Gost2012Test : public testing::Test {
protected:
    // The exception VerifySignature throws for `path` with the release pair,
    // or with `first` in place of its first key.
    Exception Failure(const boost::filesystem::path& path, Gost2012::Blob first = {}) {
        const auto error = ict_test::Caught<Exception>([&] {
            Gost2012(trace_.Tracer())
                .VerifySignature(path, first.empty() ? dsvm_test::PublicKey("release-1") : first,
                                 dsvm_test::PublicKey("release-2"), true, nullptr);
        });
        EXPECT_TRUE(error) << "no dsvm::Exception for " << path;
        return error.value_or(Exception("none", 0));
    }

    // The files the verifier accepts, of four signed by one key each.
    std::vector<std::string> Accepted(const ISignatureVerifier& verifier) {
        std::vector<std::string> accepted;
        for (const char* name : {"release-1", "release-2", "test-1", "test-2"}) {
            try {
                verifier.Verify(dir_ / (std::string(name) + ".dll"), nullptr);
                accepted.push_back(name);
            } catch (const Exception& error) {
                EXPECT_EQ(error.GetCode(), 0x408B1C02u) << name;
            }
        }
        return accepted;
    }

    ISignatureVerifierPtr FromFactory(SignatureCheckingMode mode) {
        arguments_->SetSignatureCheckingMode(mode);
        const auto factory = std::make_shared<Factory>(
            trace_.Tracer(), std::make_shared<ApplicationConfiguration>(), arguments_);
        return factory->CreateSignatureVerifier();
    }

    ict_test::TempDir dir_;
    ict_test::TraceCapture trace_;
    std::shared_ptr<CheckerArguments> arguments_ = std::make_shared<CheckerArguments>();
};

// Which files each key pair accepts is the verifier selection's table; the
// texts of the codes are the library's.
TEST_F(Gost2012Test, FailuresNameTheStepAndTheDsvmResult) {
    ict_test::WriteText(dir_ / "unsigned.dll", "no signature here");
    // The line a bad signature gives is the end-to-end test's.
    EXPECT_EQ(Failure(dir_ / "unsigned.dll").GetCode(), 0x08CD9BACu);
    // An unreadable file is not reported as a bad signature.
    EXPECT_EQ(std::string(Failure(dir_ / "missing.dll").what()),
              "Can't calculate hash (DSVM result 0x14064F2A: The file for operation couldn't be "
              "opened)");
    // The failing step is named, the location is the wrapper's.
    const Exception badKey = Failure(dir_ / "unsigned.dll", dsvm_test::ToBytes("junk"));
    EXPECT_THAT(badKey.what(), HasSubstr("Can't register keys in DSVM parameters list (DSVM "
                                         "result 0x5AAEEAE0: Some parameters"));
    EXPECT_THAT(boost::diagnostic_information(badKey),
                HasSubstr("product/tool/integrity_check_tool/source/dsvm/gost2012"));
    // A code the table does not hold has no text.
    EXPECT_EQ(std::string(Exception("Can't calculate hash", 0x12AB).what()),
              "Can't calculate hash (DSVM result 0x000012AB)");
}

TEST(DsvmGost2012HashTest, DigestsEveryByteLikeTheOpenSslGostEngine) {
    ict_test::TraceCapture trace;
    const Gost2012Hash hash(trace.Tracer());
    EXPECT_EQ(hash.GetName(), "Gost2012Hash");

    std::vector<std::uint8_t> value{7};
    hash.Evaluate(FakeDataObject(true, Bytes()), value);
    // `printf '' | openssl dgst -engine gost -md_gost12_256`
    EXPECT_EQ(check::ToHex(value),
              "3f539a213e97c802cc229d474c6aa32a825a360b2a933a949fd925208d9ce1bb");

    // Larger than one read block, so the digest spans several updates.
    std::vector<std::uint8_t> big(3 * 1024 * 1024 + 5, 0x61);
    hash.Evaluate(FakeDataObject(true, big), value);
    const std::vector<std::uint8_t> first = value;
    big.back() = 0x62;
    hash.Evaluate(FakeDataObject(true, big), value);
    EXPECT_NE(value, first);
    EXPECT_EQ(value.size(), 32u);

    const auto error = ict_test::Caught<ruk::ResultException>([&] {
        hash.Evaluate(FakeDataObject(true, ict_test::StreamScript{{1}, 1, false, 0}), value);
    });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->GetCode(), ruk::result::IoError);
}

using Names = std::vector<std::string>;

TEST_F(Gost2012Test, TheFlagAndTheCheckingModePickTheReleaseOrTheTestPair) {
    // Signing needs the library; the count keeps a verifier's own use intact.
    ASSERT_EQ(DsvmInitialize(), DSVM_OK);
    for (const char* key : {"release-1", "release-2", "test-1", "test-2"}) {
        ict_test::WriteBytes(dir_ / (std::string(key) + ".dll"),
                             dsvm_test::Sign(dsvm_test::ToBytes(key), key));
    }
    ASSERT_EQ(DsvmRelease(), DSVM_OK);
    arguments_->SetSignatureType(SignatureType::Dsvm2);
    const Gost2012SignatureVerifier release(trace_.Tracer(), true);
    EXPECT_EQ(release.GetName(), "Gost2012SignatureVerifier");
    EXPECT_EQ(Accepted(release), (Names{"release-1", "release-2"}));
    EXPECT_EQ(Accepted(Gost2012SignatureVerifier(trace_.Tracer(), false)),
              (Names{"test-1", "test-2"}));

    EXPECT_EQ(FromFactory(SignatureCheckingMode::Release)->GetName(), "Gost2012SignatureVerifier");
    const auto testVerifier = FromFactory(SignatureCheckingMode::Test);
    EXPECT_EQ(Accepted(*testVerifier), (Names{"test-1", "test-2"}));
    std::vector<std::uint8_t> content;
    testVerifier->Verify(dir_ / "test-2.dll", &content);
    EXPECT_EQ(content, dsvm_test::ToBytes("test-2"));
    // And back: the pair follows the mode of the run, not the first verifier made.
    EXPECT_EQ(Accepted(*FromFactory(SignatureCheckingMode::Release)),
              (Names{"release-1", "release-2"}));
}

}  // namespace
}  // namespace integrity_check_tool::dsvm
