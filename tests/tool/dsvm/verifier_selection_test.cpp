#include <gtest/gtest.h>

#include "arguments/checker.h"
#include "dsvm/exception.h"
#include "dsvm/gost2012_signature_verifier.h"
#include "factory/factory.h"
#include "signed_files.h"
#include "support/temp_dir.h"
#include "support/trace_capture.h"

namespace integrity_check_tool::dsvm {
namespace {

class VerifierSelectionTest : public testing::Test {
protected:
    void SetUp() override {
        dsvm_test::WriteSigned(dir_ / "release-1.dll", "r1", "release-1");
        dsvm_test::WriteSigned(dir_ / "release-2.dll", "r2", "release-2");
        dsvm_test::WriteSigned(dir_ / "test-1.dll", "t1", "test-1");
        dsvm_test::WriteSigned(dir_ / "test-2.dll", "t2", "test-2");
        arguments_->SetSignatureType(SignatureType::Dsvm2);
    }

    // The files the verifier accepts, of the four signed ones.
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

using Names = std::vector<std::string>;

TEST_F(VerifierSelectionTest, TheFlagAndTheCheckingModePickTheReleaseOrTheTestPair) {
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
    EXPECT_EQ(content, dsvm_test::ToBytes("t2"));
    // And back: the pair follows the mode of the run, not the first verifier made.
    EXPECT_EQ(Accepted(*FromFactory(SignatureCheckingMode::Release)),
              (Names{"release-1", "release-2"}));
}

}  // namespace
}  // namespace integrity_check_tool::dsvm
