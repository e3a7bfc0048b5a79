#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "arguments/checker.h"
#include "check/anyof.h"
#include "factory/factory.h"
#include "signature/without_signature_verifier.h"
#include "support/file_helpers.h"
#include "support/temp_dir.h"
#include "support/thrown.h"
#include "support/trace_capture.h"
#include "tool/check/fakes.h"

namespace integrity_check_tool {
namespace {

using testing::HasSubstr;

// A factory whose data objects are fakes, to see that checks get theirs from it.
class FakeObjectsFactory : public Factory {
public:
    FakeObjectsFactory(TracerPtr tracer, std::shared_ptr<const CheckerArguments> arguments)
        : Factory(std::move(tracer), std::make_shared<ApplicationConfiguration>(),
                  std::move(arguments)) {}

    IDataObjectPtr CreateFile(const boost::filesystem::path& /*path*/) const override {
        return object;
    }
    IDataObjectPtr CreateRegistry(const std::string& /*valueName*/, const std::string& /*keyPath*/,
                                  RegistryType /*expectedType*/) const override {
        return object;
    }

    std::shared_ptr<ict_test::FakeDataObject> object =
        std::make_shared<ict_test::FakeDataObject>(true, ict_test::BytesOf("abc"));
};

class FactoryTest : public testing::Test {
protected:
    std::shared_ptr<FakeObjectsFactory> MakeFactory() {
        return std::make_shared<FakeObjectsFactory>(trace_.Tracer(), arguments_);
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
    EXPECT_EQ(factory->CreateFileChecker({CheckType::Exists, {}})->GetName(), "Exists");
    EXPECT_EQ(factory->CreateFileChecker({CheckType::NotExists, {}})->GetName(), "NotExists");
    EXPECT_EQ(factory->CreateFileChecker({CheckType::Sha256, {1}})->GetName(), "Hash");
    EXPECT_EQ(factory->CreateFileChecker({CheckType::Gost2012, {1}})->GetName(), "Hash");
    EXPECT_EQ(factory->CreateFileChecker({CheckType::Value, {1}})->GetName(), "Value");
    EXPECT_NE(factory->CreateRegistryChecker({CheckType::Value, {1}}), nullptr);

    EXPECT_EQ(factory->CreateValueProvider(CheckType::Exists)->GetName(), "Empty");
    EXPECT_EQ(factory->CreateValueProvider(CheckType::NotExists)->GetName(), "Empty");
    EXPECT_EQ(factory->CreateValueProvider(CheckType::Sha256)->GetName(), "Sha256");
    EXPECT_EQ(factory->CreateValueProvider(CheckType::Value)->GetName(), "Raw");
    EXPECT_FALSE(factory->CreateValueProvider(CheckType::Gost2012)->GetName().empty());

    const auto unknown = static_cast<CheckType>(9);
    EXPECT_THAT(ErrorText([&] { factory->CreateFileChecker({unknown, {}}); }), HasSubstr("9"));
    EXPECT_THAT(ErrorText([&] { factory->CreateRegistryChecker({unknown, {}}); }), HasSubstr("9"));
    EXPECT_THAT(ErrorText([&] { factory->CreateValueProvider(unknown); }), HasSubstr("9"));
}

TEST_F(FactoryTest, ChecksReadTheFactorysDataObjects) {
    const auto factory = MakeFactory();
    // "Value" of "abc" passes only when the check reads the factory's fake object.
    factory->CreateFileChecker({CheckType::Value, ict_test::BytesOf("abc")})
        ->CheckFileValue("/no/such/file");
    factory->CreateRegistryChecker({CheckType::Exists, {}})
        ->CheckRegistryValue("HKLM\\K", "V", RegistryType::Sz);
    EXPECT_EQ(factory->object->reads, 1);
}

TEST_F(FactoryTest, DisabledCheckingGivesUnsignedVerifierWhateverTheType) {
    arguments_->SetSignatureCheckingMode(SignatureCheckingMode::Disabled);
    for (const auto type :
         {SignatureType::Dsvm2, SignatureType::Vds, SignatureType::VdsWithFilename,
          static_cast<SignatureType>(3), static_cast<SignatureType>(77)}) {
        arguments_->SetSignatureType(type);
        EXPECT_EQ(MakeFactory()->CreateSignatureVerifier()->GetName(), "WithoutSignatureVerifier");
    }
}

TEST_F(FactoryTest, SignatureTypeChoosesVerifierWhenChecking) {
    const auto expectVerifier = [this](SignatureType type, const std::string& name) {
        arguments_->SetSignatureType(type);
        // Either the verifier itself, or a clear refusal naming it in builds without it.
        try {
            EXPECT_EQ(MakeFactory()->CreateSignatureVerifier()->GetName(), name);
        } catch (const Exception& error) {
            EXPECT_THAT(error.what(), HasSubstr(name));
        }
    };
    for (const auto mode : {SignatureCheckingMode::Release, SignatureCheckingMode::Test}) {
        arguments_->SetSignatureCheckingMode(mode);
        expectVerifier(SignatureType::Dsvm2, "Gost2012SignatureVerifier");
        expectVerifier(SignatureType::Vds, "VdsSignatureVerifier");
        expectVerifier(SignatureType::VdsWithFilename, "VdsSignatureVerifier");
        arguments_->SetSignatureType(static_cast<SignatureType>(3));
        EXPECT_EQ(ErrorText([&] { MakeFactory()->CreateSignatureVerifier(); }),
                  "Unknown signature type 3");
    }
}

TEST_F(FactoryTest, WithoutSignatureVerifierAcceptsUnreadFilesAndReadsContentOnRequest) {
    ict_test::TempDir dir;
    const WithoutSignatureVerifier verifier;
    EXPECT_EQ(verifier.GetName(), "WithoutSignatureVerifier");
    // Not even opened: a missing file passes without a content buffer.
    verifier.Verify(dir / "missing", nullptr);

    ict_test::WriteText(dir / "f", "content");
    std::vector<std::uint8_t> content{9, 9};
    verifier.Verify(dir / "f", &content);
    EXPECT_EQ(content, ict_test::BytesOf("content"));

    EXPECT_THAT(ErrorText([&] { verifier.Verify(dir / "missing", &content); }),
                HasSubstr("Can't read file " + (dir / "missing").string()));
}

}  // namespace
}  // namespace integrity_check_tool
