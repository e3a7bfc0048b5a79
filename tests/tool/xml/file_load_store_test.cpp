#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "manifest/environment.h"
#include "manifest/filter_evaluator.h"
#include "manifest/manifest_operations.h"
#include "support/file_helpers.h"
#include "support/os_errors.h"
#include "support/temp_dir.h"
#include "support/trace_capture.h"
#include "xml_test_helpers.h"

namespace integrity_check_tool::xml {
namespace {

using ::testing::HasSubstr;

// The failure line names neither the file nor where; the line made for it
// does, in one of three forms. A file that can't be opened says so itself.
TEST(XmlLoadTest, ContentFailuresCarryALineNamingTheFileAndWhere) {
    ict_test::TempDir directory;
    const auto path = directory / "manifest.xml";
    const std::pair<std::string, std::string> cases[] = {
        {"<Manifest>\n  <File path=\"a\">\n</Manifest>\n", " at row 3, column 3: mismatched tag"},
        {"<Manifest>\n\n  <File arch=\"x86\"/>\n</Manifest>\n", " at row 3: Invalid name: x86"},
        {"<Manifest><File>\n<Check value=\"A*\"/></File></Manifest>",
         " at row 2: attempt to decode a value not in base64 char set"},
        {"<Config/>", ": XML node Manifest is absent"},
        {"<Manifest><Environment key=\"A\" value=\"\"/></Manifest>",
         ": Value of environment variable A is empty"},
    };
    for (const auto& [text, line] : cases) {
        SCOPED_TRACE(text);
        ict_test::WriteText(path, text);
        try {
            File(nullptr).Load(path);
            ADD_FAILURE() << "loaded";
        } catch (...) {
            EXPECT_EQ(CurrentExceptionContext(),
                      "Manifest file " + path.string() + " is invalid" + line);
        }
    }
    const auto missing = directory / "missing.xml";
    try {
        File(nullptr).Load(missing);
        ADD_FAILURE() << "loaded";
    } catch (const Exception& error) {
        EXPECT_EQ(error.GetMessage(),
                  "Can't open manifest file " + missing.string() +
                      ". Reason: " + ict_test::os_error::Text(ict_test::os_error::kNoEntry));
        EXPECT_EQ(CurrentExceptionContext(), "");
    }
}

// Every record is tied to the manifest's environment. Entries are stored as
// written and only those that apply on this system: a later entry for
// another system does not replace the one that applies, and an entry nothing
// uses cannot fail the manifest.
TEST(XmlLoadTest, LoadTiesEveryRecordToTheEntriesThatApplyAndTracesIt) {
    ict_test::TempDir directory;
    const auto path = directory / "manifest.xml";
    ict_test::WriteText(path,
                        "<Manifest productName=\"Demo\">\n"
                        "  <Environment key=\"Dir\" value=\"bin\"/>\n"
                        "  <Environment key=\"Dir\" value=\"windows\" os=\"Windows\"/>\n"
                        "  <Environment key=\"Dir\" value=\"\" arch=\"E2K32\"/>\n"
                        "  <Environment key=\"Loop\" value=\"%Loop%/x\"/>\n"
                        "  <File path=\"%ProductRoot%/%Dir%/a\"/>\n"
                        "  <Files path=\"%Dir%\"><File path=\"b.so\"/></Files>\n"
                        "  <Registry path=\"HKEY_CURRENT_USER\\%Dir%\"/>\n"
                        "</Manifest>\n");
    platform::SystemFacts facts;
    facts.platform = platform::kPlatformLinux;
    facts.archCode = platform::kArchX86_64;
    const FilterEvaluator filter(nullptr, SystemInfo({}, facts));
    ict_test::TraceCapture capture;

    auto manifest = File(capture.Tracer()).Load(path, &filter);

    const auto& environment = manifest->environments[0].environment;
    ASSERT_TRUE(environment);
    EXPECT_EQ(environment->GetValue("ManifestPath"), path.string());
    EXPECT_EQ(environment->GetValue("Dir"), "bin");
    EXPECT_EQ(environment->GetValue("Loop"), "%Loop%/x");
    EXPECT_EQ(manifest->directories[0]->environment, environment);
    EXPECT_EQ(manifest->directories[0]->files[0]->environment, environment);
    EXPECT_EQ(manifest->registries[0]->environment, environment);
    const auto lines = capture.Lines();
    ASSERT_EQ(lines.size(), 5u);
    EXPECT_THAT(lines[2], HasSubstr("Environment variable Dir is set to bin"));
    EXPECT_THAT(lines[4], HasSubstr("Manifest file " + path.string() + " loaded:\n{"));
    EXPECT_THAT(lines[4], HasSubstr("\"productName\": \"Demo\""));
    ExpandManifest(*manifest);
    EXPECT_EQ(manifest->files.begin()->first, directory.Path() / "bin" / "a");

    // Without a filter every entry is set, in order, so the empty one fails.
    EXPECT_THROW(File(nullptr).Load(path), Exception);
}

}  // namespace
}  // namespace integrity_check_tool::xml
