#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "arguments/checker.h"
#include "common/exception.h"
#include "factory/factory.h"
#include "signature/without_signature_verifier.h"
#include "support/file_helpers.h"
#include "support/temp_dir.h"
#include "support/thrown.h"
#include "support/trace_capture.h"

// Which verifier each signature type gets while checking is the verifiers'
// own tests (dsvm, vds) and the side actions' (an unknown type).
namespace integrity_check_tool {
namespace {

using testing::HasSubstr;

class FactoryTest : public testing::Test {
protected:
    std::shared_ptr<Factory> MakeFactory() {
        return std::make_shared<Factory>(trace_.Tracer(),
                                         std::make_shared<ApplicationConfiguration>(), arguments_);
    }

    template <typename Action>
    static std::string ErrorText(Action&& action) {
        return ict_test::ThrownText<Exception>(action);
    }

    ict_test::TraceCapture trace_;
    std::shared_ptr<CheckerArguments> arguments_ = std::make_shared<CheckerArguments>();
};

TEST_F(FactoryTest, CheckerAndProviderByCheckType) {
    const auto factory = MakeFactory();
    // Registry checkers come from the same table as file checkers.
    const struct {
        CheckType type;
        const char* checker;
        const char* provider;
    } cases[] = {
        {CheckType::Exists, "Exists", "Empty"}, {CheckType::NotExists, "NotExists", "Empty"},
        {CheckType::Sha256, "Hash", "Sha256"},  {CheckType::Gost2012, "Hash", "Gost2012Hash"},
        {CheckType::Value, "Value", "Raw"},
    };
    for (const auto& test : cases) {
        EXPECT_EQ(factory->CreateFileChecker({test.type, {1}})->GetName(), test.checker);
        EXPECT_EQ(factory->CreateValueProvider(test.type)->GetName(), test.provider);
    }
    const auto unknown = static_cast<CheckType>(9);
    EXPECT_THAT(ErrorText([&] { factory->CreateFileChecker({unknown, {}}); }), HasSubstr("9"));
    EXPECT_THAT(ErrorText([&] { factory->CreateValueProvider(unknown); }), HasSubstr("9"));
}

TEST_F(FactoryTest, DisabledCheckingGivesUnsignedVerifierWhateverTheType) {
    arguments_->SetSignatureCheckingMode(SignatureCheckingMode::Disabled);
    for (const auto type : {SignatureType::Dsvm2, SignatureType::Vds,
                            SignatureType::VdsWithFilename, static_cast<SignatureType>(77)}) {
        arguments_->SetSignatureType(type);
        EXPECT_EQ(MakeFactory()->CreateSignatureVerifier()->GetName(), "WithoutSignatureVerifier");
    }
}

TEST_F(FactoryTest, WithoutSignatureVerifierAcceptsUnreadFilesAndReadsContentOnRequest) {
    ict_test::TempDir dir;
    const WithoutSignatureVerifier verifier;
    // Not even opened: a missing file passes without a content buffer.
    verifier.Verify(dir / "missing", nullptr);

    ict_test::WriteText(dir / "f", "content");
    std::vector<std::uint8_t> content{9, 9};
    verifier.Verify(dir / "f", &content);
    EXPECT_EQ(content, std::vector<std::uint8_t>({'c', 'o', 'n', 't', 'e', 'n', 't'}));

    EXPECT_THAT(ErrorText([&] { verifier.Verify(dir / "missing", &content); }),
                HasSubstr("Can't read file " + (dir / "missing").string()));
}

}  // namespace
}  // namespace integrity_check_tool
