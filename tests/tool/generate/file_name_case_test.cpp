#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "action/generate.h"
#include "tool/generate/generate_fixture.h"
#include "xml/file.h"

namespace integrity_check_tool::action {
namespace {

using testing::HasSubstr;

class FileNameCaseTest : public testing::Test, public ict_test::GenerateFixture {
protected:
    // Lists the product's readme.txt once as written and once in capitals.
    bool Generate(const char* capitalsCheck) {
        ict_test::WriteText(dir_ / "config" / "generation.xml",
                            std::string(R"(<ManifestGeneration productName="Demo" productVersion="1"
                                                               productRoot="../product">
  <File path="%ProductRoot%\readme.txt"><Check type="Sha256"/></File>
  <File path="%ProductRoot%\README.TXT"><Check type=")") +
                                capitalsCheck + R"("/></File>
</ManifestGeneration>)");
        ApplicationConfiguration configuration;
        configuration.generate = GenerateSettings();
        configuration.generate->configPath = dir_ / "config" / "generation.xml";
        configuration.generate->manifestPath = dir_ / "m.xml";
        action::Generate action(MakeFactory(configuration), output_);
        return action.Execute();
    }
};

// Where names ignore letter case, both spellings are one file: listed again
// with the same checks it is listed once, with others it is refused. Where
// they do not, the capitals name a file that is not there.
TEST_F(FileNameCaseTest, OneFileUnderTwoSpellingsIsOneFileWhereNamesIgnoreCase) {
    ict_test::WriteText(dir_ / "product" / "readme.txt", "hello");
#ifdef _WIN32
    ASSERT_TRUE(Generate("Sha256")) << err_.str();
    EXPECT_EQ(xml::File(nullptr).Load(dir_ / "m.xml")->files.size(), 1u);
    EXPECT_FALSE(Generate("Exists"));
    EXPECT_THAT(err_.str(), HasSubstr("README.TXT is already listed with other checks\n"));
#else
    EXPECT_FALSE(Generate("Sha256"));
    EXPECT_THAT(err_.str(), HasSubstr("README.TXT not found\n"));
#endif
}

}  // namespace
}  // namespace integrity_check_tool::action
