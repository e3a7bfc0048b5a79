#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "action/verify.h"
#include "tool/action/action_fixture.h"
#include "tool/check/fakes.h"

namespace integrity_check_tool::action {
namespace {

using ict_test::Base64;
using ict_test::FileRecord;
using ict_test::Sha256Check;
using ict_test::ValueCheck;
using testing::HasSubstr;

class VerifyTest : public testing::Test, public ict_test::ActionFixture {
protected:
    bool RunVerify(VerifySettings settings, std::shared_ptr<const Factory> factory = nullptr) {
        Verify verify(std::move(settings), trace_.Tracer(), factory ? factory : MakeFactory(),
                      statistics_);
        EXPECT_EQ(verify.GetName(), "Verify");
        return verify.Execute();
    }
};

TEST_F(VerifyTest, PassingManifestCountsEveryObjectAndPrintsSummaryOnce) {
    ict_test::WriteText(dir_ / "bin" / "a.dll", "aaa");
    ict_test::WriteText(dir_ / "bin" / "b.dll", "bbb");
    const auto manifest = WriteManifest(
        "integrity_check.xml",
        "<Environment key=\"Bin\" value=\"%ProductRoot%\\bin\"/>\n" +
            FileRecord("%Bin%\\a.dll", Sha256Check("aaa")) + "<Files path=\"%Bin%\">" +
            FileRecord("b.dll", ValueCheck("bbb")) + "</Files>\n" +
            "<File path=\"%Bin%\\gone.dll\"><Check type=\"NotExists\"/></File>\n"
            "<File path=\"%Bin%\\other.dll\" defined=\"NOT_GIVEN\"><Check/></File>\n"
            "<Registry path=\"HKLM\\SOFTWARE\\Test\" os=\"MacOS\">"
            "<Value name=\"V\" type=\"REG_SZ\"><Check/></Value></Registry>\n");

    EXPECT_TRUE(RunVerify(Settings({manifest})));

    const std::string a = (dir_ / "bin" / "a.dll").string();
    EXPECT_EQ(Counts(Manifests), "0/0/1");
    EXPECT_EQ(Counts(Files), "0/1/3");
    EXPECT_EQ(Counts(Registries), "0/1/0");
    EXPECT_EQ(Counts(RegistryValues), "0/0/0");
    // Messages name the expanded path.
    EXPECT_TRUE(Traced("Verifying manifest " + manifest.string() + " ..."));
    EXPECT_TRUE(Traced("Verifying file " + a + " ..."));
    EXPECT_TRUE(Traced("Verification of file " + a + " completed"));
    EXPECT_THAT(out_.str(),
                HasSubstr("file " + (dir_ / "bin" / "other.dll").string() + " filtered"));
    EXPECT_THAT(out_.str(), HasSubstr("\tFiles: 0 / 1 / 3\n"));
    EXPECT_EQ(err_.str(), "");
    const std::string summary = "Summary( failed / skipped / succeeded ):";
    const std::string out = out_.str();
    EXPECT_EQ(out.find(summary), out.rfind(summary));
}

// Registry values come from fakes: present ones hold "ok".
class FakeRegistryFactory : public Factory {
public:
    using Factory::Factory;
    IDataObjectPtr CreateRegistry(const std::string& valueName, const std::string& /*keyPath*/,
                                  RegistryType /*expectedType*/) const override {
        return std::make_shared<ict_test::FakeDataObject>(valueName != "Absent",
                                                          ict_test::BytesOf("ok"));
    }
};

TEST_F(VerifyTest, RegistryKeyFailsOnceAfterAllItsValuesRan) {
    const auto manifest = WriteManifest(
        "m.xml",
        "<Registry path=\"HKLM\\SOFTWARE\\Test\">"
        "<Value name=\"Present\" type=\"REG_SZ\"><Check type=\"NotExists\"/></Value>"
        "<Value name=\"Absent\" type=\"REG_SZ\"><Check type=\"NotExists\"/></Value>"
        "<Value name=\"Data\" type=\"REG_BINARY\"><Check type=\"Value\" value=\"" +
            Base64("ok") +
            "\"/></Value>"
            "<Value name=\"Skipped\" type=\"REG_SZ\" defined=\"NOT_GIVEN\"><Check/></Value>"
            "</Registry>\n");
    const auto factory = std::make_shared<FakeRegistryFactory>(
        trace_.Tracer(), std::make_shared<ApplicationConfiguration>(), arguments_);

    EXPECT_FALSE(RunVerify(Settings({manifest}), factory));

    EXPECT_EQ(Counts(RegistryValues), "1/1/2");
    EXPECT_EQ(Counts(Registries), "1/0/0");
    EXPECT_EQ(Counts(Manifests), "1/0/0");
    EXPECT_THAT(err_.str(), HasSubstr("registry value Present failed. Reason: Verification "
                                      "mismatch with 'NotExists' checker. Reason: Registry key "
                                      "Present exists in HKLM\\SOFTWARE\\Test"));
    EXPECT_THAT(err_.str(), HasSubstr("registry path HKLM\\SOFTWARE\\Test failed. Reason: "
                                      "Verification of registry path HKLM\\SOFTWARE\\Test "
                                      "failed"));
    EXPECT_TRUE(Traced("Verifying registry value Data ..."));
    EXPECT_TRUE(Traced("Verification of registry value Data completed"));
}

TEST_F(VerifyTest, ManifestsExpandedThroughOwnEnvironmentsMergeIntoOne) {
    ict_test::WriteText(dir_ / "product" / "a.dll", "aaa");
    ict_test::WriteText(dir_ / "product" / "b.dll", "bbb");
    const auto first =
        WriteManifest("product/first.xml", FileRecord("%ProductRoot%/a.dll", Sha256Check("aaa")));
    const auto second = WriteManifest(
        "second.xml", "<Environment key=\"Home\" value=\"%ProductRoot%/product\"/>\n" +
                          FileRecord("%Home%/a.dll", Sha256Check("aaa")) +
                          FileRecord("%Home%/b.dll", ict_test::Check("Exists")));

    EXPECT_TRUE(RunVerify(Settings({first, second})));

    // Paths sort by element: product/first.xml comes before second.xml.
    EXPECT_TRUE(Traced("Merge " + second.string() + " -> " + first.string() + " ..."));
    EXPECT_EQ(Counts(Files), "0/0/2");
    EXPECT_EQ(Counts(Manifests), "0/0/1");
    EXPECT_THAT(out_.str(),
                HasSubstr("manifest " + first.string() + ", " + second.string() + " succeeded"));
}

TEST_F(VerifyTest, UnreadableManifestFailsTheManifestObject) {
    const auto broken = WriteManifest("broken.xml", "<File path=\"x\">\n");
    EXPECT_FALSE(RunVerify(Settings({broken})));
    EXPECT_EQ(Counts(Manifests), "1/0/0");
    EXPECT_EQ(Counts(Files), "0/0/0");
    EXPECT_THAT(err_.str(), HasSubstr("manifest " + broken.string() + " failed. Reason: "));
    EXPECT_THAT(out_.str(), HasSubstr("\tManifests: 1 / 0 / 0\n"));
}

TEST_F(VerifyTest, SingleFileIsTheOnlyObjectChecked) {
    ict_test::WriteText(dir_ / "a.dll", "aaa");
    const auto manifest =
        WriteManifest("m.xml",
                      "<File path=\"%ProductRoot%/a.dll\"><Check type=\"Exists\"/></File>\n"
                      "<File path=\"%ProductRoot%/missing.dll\"><Check type=\"Exists\"/></File>\n"
                      "<File path=\"%ProductRoot%/other.dll\" os=\"MacOS\"><Check/></File>\n"
                      "<Registry path=\"HKLM\\SOFTWARE\\Test\"><Value name=\"V\" type=\"REG_SZ\">"
                      "<Check type=\"Exists\"/></Value></Registry>\n");
    auto settings = Settings({manifest});
    settings.singleFilePath = dir_ / "a.dll";
    EXPECT_TRUE(RunVerify(settings));
    // Records filtered out elsewhere in the manifest are not this run's objects.
    EXPECT_EQ(Counts(Files), "0/0/1");
    EXPECT_EQ(Counts(Registries), "0/0/0");

    settings.singleFilePath = dir_ / "elsewhere.dll";
    EXPECT_FALSE(RunVerify(settings));
    EXPECT_THAT(err_.str(), HasSubstr("File " + (dir_ / "elsewhere.dll").string() +
                                      " not found in manifest " + manifest.string()));
    EXPECT_EQ(Counts(Files), "0/0/1");
}

TEST_F(VerifyTest, SeveralChecksOnOneFileAreAnyOf) {
    ict_test::WriteText(dir_ / "a.dll", "aaa");
    const auto manifest = WriteManifest(
        "m.xml", "<File path=\"%ProductRoot%/a.dll\"><Check type=\"Value\" value=\"" +
                     Base64("old") + "\"/><Check type=\"Value\" value=\"" + Base64("aaa") +
                     "\"/></File>\n"
                     "<File path=\"%ProductRoot%/none.dll\"></File>\n");
    EXPECT_FALSE(RunVerify(Settings({manifest})));
    EXPECT_TRUE(Traced("Check [2] - Succeeded"));
    EXPECT_EQ(Counts(Files), "1/0/1");
    EXPECT_THAT(err_.str(),
                HasSubstr("There are no checks for file " + (dir_ / "none.dll").string()));
}

}  // namespace
}  // namespace integrity_check_tool::action
