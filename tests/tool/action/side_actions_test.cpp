#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "action/check_signature.h"
#include "action/check_single_file.h"
#include "common/exception.h"
#include "tool/action/action_fixture.h"

namespace integrity_check_tool::action {
namespace {

using testing::HasSubstr;

// Accepts every file except those named "bad.dll".
class PickyVerifier : public ISignatureVerifier {
public:
    std::string GetName() const override { return "Picky"; }
    void Verify(const boost::filesystem::path& path,
                std::vector<std::uint8_t>* /*content*/) const override {
        verified.push_back(path.filename().string());
        if (path.filename() == "bad.dll") {
            ICT_THROW(Exception("Invalid signature"));
        }
    }
    mutable std::vector<std::string> verified;
};

class PickyFactory : public Factory {
public:
    using Factory::Factory;
    ISignatureVerifierPtr CreateSignatureVerifier() const override { return verifier; }
    std::shared_ptr<PickyVerifier> verifier = std::make_shared<PickyVerifier>();
};

class SideActionsTest : public testing::Test, public ict_test::ActionFixture {
protected:
    boost::filesystem::path ManifestOfThree() {
        return WriteManifest("m.xml",
                             "<File path=\"%ProductRoot%/bad.dll\"><Check/></File>\n"
                             "<File path=\"%ProductRoot%/good.dll\"><Check/></File>\n"
                             "<File path=\"%ProductRoot%/skip.dll\" defined=\"NO\"><Check/></File>"
                             "\n<File path=\"%ProductRoot%/late.dll\"><Check/></File>\n");
    }
};

TEST_F(SideActionsTest, CheckSignatureTriesEveryFileAndTracesFailuresAsErrors) {
    const auto factory = std::make_shared<PickyFactory>(
        trace_.Tracer(), std::make_shared<ApplicationConfiguration>(), arguments_);
    CheckSignature action(Settings({ManifestOfThree()}), trace_.Tracer(), factory, statistics_);
    EXPECT_EQ(action.GetName(), "CheckSignature");

    EXPECT_FALSE(action.Execute());

    EXPECT_EQ(factory->verifier->verified,
              (std::vector<std::string>{"bad.dll", "good.dll", "late.dll"}));
    EXPECT_EQ(Counts(Files), "1/1/2");
    EXPECT_EQ(Counts(Manifests), "1/0/0");
    EXPECT_THAT(err_.str(), HasSubstr("bad.dll failed. Reason: Invalid signature"));
    EXPECT_THAT(out_.str(), HasSubstr("\tFiles: 1 / 1 / 2\n"));
}

TEST_F(SideActionsTest, SignatureOnlyWithCheckingDisabledAcceptsFilesUnread) {
    arguments_->SetSignatureCheckingMode(SignatureCheckingMode::Disabled);
    CheckSignature action(Settings({ManifestOfThree()}), trace_.Tracer(), MakeFactory(),
                          statistics_);
    EXPECT_TRUE(action.Execute());  // none of the files exists, and none is opened
    EXPECT_EQ(Counts(Files), "0/1/3");
}

TEST_F(SideActionsTest, CheckSignatureOfSingleFileOnly) {
    const auto factory = std::make_shared<PickyFactory>(
        trace_.Tracer(), std::make_shared<ApplicationConfiguration>(), arguments_);
    ict_test::WriteText(dir_ / "good.dll", "g");
    auto settings = Settings({ManifestOfThree()});
    settings.singleFilePath = dir_ / "good.dll";
    EXPECT_TRUE(CheckSignature(settings, trace_.Tracer(), factory, statistics_).Execute());
    EXPECT_EQ(factory->verifier->verified, (std::vector<std::string>{"good.dll"}));
}

TEST_F(SideActionsTest, UnusableVerifierFailsBeforeAnyFile) {
    arguments_->SetSignatureCheckingMode(SignatureCheckingMode::Release);
    arguments_->SetSignatureType(static_cast<SignatureType>(3));
    CheckSignature action(Settings({ManifestOfThree()}), trace_.Tracer(), MakeFactory(),
                          statistics_);
    EXPECT_FALSE(action.Execute());
    EXPECT_EQ(Counts(Files), "0/0/0");
    EXPECT_THAT(err_.str(), HasSubstr("Unknown signature type 3"));
}

TEST_F(SideActionsTest, CheckSingleFileWritesTheValueInHex) {
    ict_test::WriteText(dir_ / "v.bin", "abc");
    SingleFileCheckSettings settings{dir_ / "v.bin", CheckType::Value};
    CheckSingleFile action(settings, trace_.Tracer(), MakeFactory(), output_);
    EXPECT_EQ(action.GetName(), "CheckSingleFile");
    EXPECT_TRUE(action.Execute());
    EXPECT_EQ(out_.str(), "616263\n");
    EXPECT_TRUE(Traced("Checking file " + (dir_ / "v.bin").string() + " ..."));

    settings.filePath = dir_ / "missing.bin";
    settings.checkType = CheckType::Sha256;
    EXPECT_FALSE(CheckSingleFile(settings, trace_.Tracer(), MakeFactory(), output_).Execute());
    EXPECT_THAT(err_.str(),
                HasSubstr("Can't read or access file " + (dir_ / "missing.bin").string()));
}

}  // namespace
}  // namespace integrity_check_tool::action
