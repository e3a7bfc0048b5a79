#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <boost/filesystem/directory.hpp>
#include <boost/filesystem/operations.hpp>

#include "manifest/environment.h"
#include "manifest/filter_evaluator.h"
#include "manifest/manifest_operations.h"
#include "support/file_helpers.h"
#include "support/os_errors.h"
#include "support/temp_dir.h"
#include "support/thrown.h"
#include "support/trace_capture.h"
#include "xml_test_helpers.h"

namespace integrity_check_tool::xml {
namespace {

long CountEntries(const boost::filesystem::path& directory) {
    return std::distance(boost::filesystem::directory_iterator(directory),
                         boost::filesystem::directory_iterator());
}

using ::testing::ElementsAre;
using ::testing::HasSubstr;

constexpr const char* kManifest =
    "<Manifest productName=\"Demo\">\n"
    "  <Environment key=\"Bin\" value=\"%ProductRoot%\\bin\"/>\n"
    "  <File path=\"%Bin%\\a.so\"><Check type=\"Exists\"/></File>\n"
    "  <Files path=\"%Bin%\"><File path=\"b.so\"/></Files>\n"
    "  <Registry path=\"HKEY_CURRENT_USER\\%Bin%\"/>\n"
    "</Manifest>\n";

TEST(XmlLoadTest, LoadTiesTheManifestToItsEnvironmentAndTracesIt) {
    ict_test::TempDir directory;
    const auto path = directory / "manifest.xml";
    ict_test::WriteText(path, kManifest);
    ict_test::TraceCapture capture;

    auto manifest = File(capture.Tracer()).Load(path);

    const auto& environment = manifest->environments[0].environment;
    ASSERT_TRUE(environment);
    EXPECT_EQ(environment->GetValue("ManifestPath"), path.string());
    EXPECT_EQ(environment->GetValue("Bin"), "%ProductRoot%\\bin");
    EXPECT_EQ(environment->Expand("%Bin%"), directory.Path().string() + "\\bin");
    EXPECT_EQ(manifest->files.begin()->second->environment, environment);
    EXPECT_EQ(manifest->directories[0]->files[0]->environment, environment);
    EXPECT_EQ(manifest->registries[0]->environment, environment);

    const auto lines = capture.Lines();
    ASSERT_EQ(lines.size(), 4u);
    EXPECT_THAT(lines[2], HasSubstr("Environment variable Bin is set to %ProductRoot%\\bin"));
    EXPECT_THAT(lines[3], HasSubstr("Manifest file " + path.string() + " loaded:\n{"));
    EXPECT_THAT(lines[3], HasSubstr("\"productName\": \"Demo\""));

    // What the verify walk does next: every path ends up real.
    ExpandManifest(*manifest);
    FilteredRecords filtered;
    SelectApplicable(*manifest, FilterEvaluator(nullptr, SystemInfo({})), filtered);
    const auto bin = directory.Path() / "bin";
    std::vector<boost::filesystem::path> paths;
    for (const auto& file : manifest->files) {
        paths.push_back(file.first);
    }
    EXPECT_THAT(paths, ElementsAre(bin / "a.so", bin / "b.so"));
    EXPECT_EQ(manifest->registries[0]->path,
              "HKEY_CURRENT_USER\\" + directory.Path().string() + "\\bin");
}

TEST(XmlLoadTest, FailuresNameTheFileOrTheProblem) {
    ict_test::TempDir directory;
    const auto missing = directory / "missing.xml";
    EXPECT_EQ(ict_test::ThrownText<Exception>([&] { File(nullptr).Load(missing); }),
              "Can't open manifest file " + missing.string() +
                  ". Reason: " + ict_test::os_error::Text(ict_test::os_error::kNoEntry));
    const auto broken = directory / "broken.xml";
    ict_test::WriteText(broken, "<Manifest><Environment key=\"A\" value=\"\"/></Manifest>");
    EXPECT_EQ(ict_test::ThrownText<Exception>([&] { File(nullptr).Load(broken); }),
              "Value of environment variable A is empty");
}

// The failure line names neither the file nor where; the line made for it
// does, in one of three forms.
TEST(XmlLoadTest, ContentFailuresCarryALineNamingTheFileAndWhere) {
    ict_test::TempDir directory;
    struct Case {
        const char* what;
        std::string text;
        std::string line;  // after "Manifest file <path> is invalid"
    };
    const Case cases[] = {
        {"parse error", "<Manifest>\n  <File path=\"a\">\n</Manifest>\n",
         " at row 3, column 3: mismatched tag"},
        {"invalid name", "<Manifest>\n\n  <File arch=\"x86\"/>\n</Manifest>\n",
         " at row 3: Invalid name: x86"},
        {"invalid number", "<Manifest>\n<Files><File minVersionNt=\"abc\"/></Files></Manifest>",
         " at row 2: Invalid number: abc"},
        {"base64", "<Manifest><File>\n<Check value=\"A*\"/></File></Manifest>",
         " at row 2: attempt to decode a value not in base64 char set"},
        {"no root", "<Config/>", ": XML node Manifest is absent"},
        {"empty environment value", "<Manifest><Environment key=\"A\" value=\"\"/></Manifest>",
         ": Value of environment variable A is empty"},
    };
    for (const auto& item : cases) {
        SCOPED_TRACE(item.what);
        const auto path = directory / "manifest.xml";
        ict_test::WriteText(path, item.text);
        try {
            File(nullptr).Load(path);
            ADD_FAILURE() << "loaded";
        } catch (...) {
            EXPECT_EQ(CurrentExceptionContext(),
                      "Manifest file " + path.string() + " is invalid" + item.line);
        }
    }
    // A file that cannot be opened says so itself.
    try {
        File(nullptr).Load(directory / "missing.xml");
        ADD_FAILURE() << "loaded";
    } catch (...) {
        EXPECT_EQ(CurrentExceptionContext(), "");
    }
}

// Entries are stored as written and only those that apply on this system:
// a later entry for another system does not replace the one that applies,
// and an entry nothing uses cannot fail the manifest.
TEST(XmlLoadTest, EnvironmentEntriesHonourTheirConditions) {
    ict_test::TempDir directory;
    const auto path = directory / "manifest.xml";
    ict_test::WriteText(path,
                        "<Manifest>\n"
                        "  <Environment key=\"Dir\" value=\"bin\"/>\n"
                        "  <Environment key=\"Dir\" value=\"windows\" os=\"Windows\"/>\n"
                        "  <Environment key=\"Dir\" value=\"\" arch=\"E2K32\"/>\n"
                        "  <Environment key=\"Loop\" value=\"%Loop%/x\"/>\n"
                        "  <File path=\"%ProductRoot%/%Dir%/a\"/>\n"
                        "</Manifest>\n");
    platform::SystemFacts facts;
    facts.platform = platform::kPlatformLinux;
    facts.archCode = platform::kArchX86_64;
    const FilterEvaluator filter(nullptr, SystemInfo({}, facts));

    auto manifest = File(nullptr).Load(path, &filter);
    const auto& environment = *manifest->environments[0].environment;
    EXPECT_EQ(environment.GetValue("Dir"), "bin");
    EXPECT_EQ(environment.GetValue("Loop"), "%Loop%/x");
    ExpandManifest(*manifest);
    EXPECT_EQ(manifest->files.begin()->first, directory.Path() / "bin" / "a");

    // Without a filter every entry is set, in order, so the empty one fails.
    EXPECT_THROW(File(nullptr).Load(path), Exception);
}

TEST(XmlStoreTest, StoreWritesTheFileAndTracesIt) {
    ict_test::TempDir directory;
    const auto path = directory / "out.xml";
    ict_test::WriteText(path, std::string(50000, 'x'));
    const auto source = testing::ReadXml(kManifest);
    ict_test::TraceCapture capture;

    File(capture.Tracer()).Store(*source, path);

    EXPECT_EQ(ict_test::ReadText(path), testing::WriteXml(*source));
    ASSERT_EQ(capture.Lines().size(), 1u);
    EXPECT_THAT(capture.Lines()[0], HasSubstr("Manifest file " + path.string() + " stored:\n{"));
    // Only the manifest is left in the folder: no temporary file.
    EXPECT_EQ(CountEntries(directory.Path()), 1);
    EXPECT_EQ(PrintManifest(*File(nullptr).Load(path)), PrintManifest(*source));
}

TEST(XmlStoreTest, FailureLeavesNothingBehind) {
    ict_test::TempDir directory;
    const auto path = directory / "no-such-folder" / "out.xml";
    EXPECT_THAT(ict_test::ThrownText<Exception>([&] { File(nullptr).Store(Manifest{}, path); }),
                HasSubstr("Can't open manifest file " + path.string()));
    EXPECT_TRUE(boost::filesystem::is_empty(directory.Path()));

    // A directory in the way of the target: the rename fails, the temporary goes.
    const auto blocked = directory / "blocked.xml";
    boost::filesystem::create_directories(blocked / "inside");
    EXPECT_THROW(File(nullptr).Store(Manifest{}, blocked), Exception);
    EXPECT_EQ(CountEntries(directory.Path()), 1);
}

}  // namespace
}  // namespace integrity_check_tool::xml
