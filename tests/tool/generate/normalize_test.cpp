#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/enum_printing.h"

#include "action/normalize.h"
#include "support/file_helpers.h"
#include "support/os_errors.h"
#include "tool/generate/generate_fixture.h"
#include "xml/file.h"

namespace integrity_check_tool::action {
namespace {

namespace fs = boost::filesystem;
using testing::Contains;
using testing::HasSubstr;
using testing::Not;

class NormalizeTest : public testing::Test, public ict_test::GenerateFixture {
protected:
    bool Run(const fs::path& path) {
        Normalize action(tracer_, NormalizeSettings{path});
        EXPECT_EQ(action.GetName(), "Normalize");
        return action.Execute();
    }
};

TEST_F(NormalizeTest, GroupsPlaceholdersAndRegistryKeysSurvive) {
    const fs::path path = dir_ / "m.xml";
    ict_test::WriteText(path, R"(<Config><Manifest productName="Demo">
  <Environment key="Bin" value="%ProductRoot%\bin"/>
  <Files path="%Bin%" arch="X86"><File path="p.dll"><Check/></File></Files>
  <Registry path="HKEY_LOCAL_MACHINE\SOFTWARE\Demo" os="Windows">
    <Value name="Version" type="REG_SZ"><Check type="Value" value="AQID"/></Value>
  </Registry>
</Manifest></Config>)");
    ASSERT_TRUE(Run(path));

    const auto manifest = xml::File(nullptr).Load(path);
    EXPECT_EQ(manifest->productName, "Demo");
    ASSERT_EQ(manifest->environments.size(), 1u);
    EXPECT_EQ(manifest->environments[0].value, "%ProductRoot%\\bin");
    ASSERT_EQ(manifest->directories.size(), 1u);
    EXPECT_EQ(manifest->directories[0]->path.string(), "%Bin%");
    EXPECT_EQ(manifest->directories[0]->filter.arch, Arch::X86);
    ASSERT_EQ(manifest->registries.size(), 1u);
    EXPECT_EQ(manifest->registries[0]->values.at(0)->checks.at(0).value, (Bytes{1, 2, 3}));
    const std::string text = ict_test::ReadText(path);
    EXPECT_THAT(text, Not(HasSubstr("<Config>")));
    EXPECT_THAT(Messages(), Contains("Manifest " + path.string() + " normalized"));
    // The current dialect comes back unchanged.
    ASSERT_TRUE(Run(path));
    EXPECT_EQ(ict_test::ReadText(path), text);
}

TEST_F(NormalizeTest, BadInputLeavesTheFileByteForByte) {
    const std::string broken =
        "<Manifest>\r\n  <File path=\"a\"><Check type=\"sha256\"/></File>\r\n";
    const std::string badName =
        "<Manifest>\r\n  <File path=\"a\"><Check type=\"sha256\"/></File>\r\n</Manifest>";
    for (const std::string& content : {broken, badName, std::string("<Other/>")}) {
        const fs::path path = dir_ / "m.xml";
        ict_test::WriteText(path, content);
        EXPECT_FALSE(Run(path)) << content;
        EXPECT_EQ(ict_test::ReadText(path), content);
    }
    const auto messages = Messages();
    EXPECT_THAT(messages,
                Contains(HasSubstr("Normalization of manifest " + (dir_ / "m.xml").string() +
                                   " failed. Reason: Invalid name: sha256")));
    EXPECT_THAT(messages, Contains(HasSubstr("XML node Manifest is absent")));
    // The unclosed manifest is placed: which file, which row.
    EXPECT_THAT(messages, Contains(HasSubstr("Manifest file " + (dir_ / "m.xml").string() +
                                             " is invalid at row 3")));

    EXPECT_FALSE(Run(dir_ / "none.xml"));
    EXPECT_FALSE(fs::exists(dir_ / "none.xml"));
}

TEST_F(NormalizeTest, OnlyARegularFileIsReadAndTheReasonIsGiven) {
    ict_test::WriteText(dir_ / "m.xml", "<Manifest/>");
    struct Case {
        fs::path path;
        std::string reason;
    };
    // Neither special file may be read: one never ends, the other waits for a writer.
    std::vector<Case> cases = {
        {dir_.Path(), "it is a directory, not a regular file"},
        {dir_ / "none.xml", ict_test::os_error::Text(ict_test::os_error::kNoEntry)},
        {ict_test::MakeSpecialFile(dir_ / "pipe.xml"), "it is not a regular file"},
    };
#ifndef _WIN32
    cases.push_back({"/dev/zero", "it is not a regular file"});
#endif
    for (const auto& test : cases) {
        EXPECT_FALSE(Run(test.path)) << test.path;
        EXPECT_THAT(Messages(), Contains("Normalization of manifest " + test.path.string() +
                                         " failed. Reason: Can't open manifest file " +
                                         test.path.string() + ". Reason: " + test.reason));
    }
    EXPECT_EQ(ict_test::ReadText(dir_ / "m.xml"), "<Manifest/>");
}

}  // namespace
}  // namespace integrity_check_tool::action
