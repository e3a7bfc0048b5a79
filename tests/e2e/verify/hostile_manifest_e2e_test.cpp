// The checker run on manifests an attacker or a careless editor wrote: it
// ends with FAILED and says which manifest and where, or checks exactly what
// the manifest says; it never crashes, hangs or checks something else.
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/e2e.h"

namespace {

namespace fs = boost::filesystem;
using testing::HasSubstr;
using testing::Not;

struct Case {
    const char* what;
    std::string manifest;  // written as product/manifest.xml
    int exitCode;
    std::vector<std::string> errorLines;  // each must appear on standard error
    std::string absent = "";              // must appear on neither stream
};

std::string Deep(int levels) {
    std::string text = "<Manifest>";
    for (int level = 0; level < levels; ++level) {
        text += "<a>";
    }
    return text;
}

std::string ExistsRecord(const std::string& path) {
    return "<Manifest>\n<File path=\"" + path + "\"><Check type=\"Exists\"/></File>\n</Manifest>\n";
}

std::string Doubling(int levels) {
    std::string text = "<Manifest>\n";
    for (int level = 0; level < levels; ++level) {
        const std::string next = "%K" + std::to_string(level + 1) + "%";
        text +=
            "<Environment key=\"K" + std::to_string(level) + "\" value=\"" + next + next + "\"/>\n";
    }
    text += "<Environment key=\"K" + std::to_string(levels) + "\" value=\"x\"/>\n";
    return text +
           "<File path=\"%ProductRoot%/%K0%\"><Check type=\"Exists\"/></File>\n</Manifest>\n";
}

class HostileManifestEndToEnd : public testing::Test {
protected:
    void SetUp() override {
        ict_test::WriteText(dir_ / "product" / "a.dll", "a");
        // Named with blanks that must not be condensed.
        ict_test::WriteText(dir_ / "product" / " b  c.txt ", "b");
    }

    fs::path Manifest() const { return dir_ / "product" / "manifest.xml"; }

    ict_test::RunResult Run(std::vector<std::string> arguments) {
        ict_test::RunOptions options;
        options.arguments = std::move(arguments);
        options.timeout = std::chrono::seconds(120);
        return ict_test::RunProgram(ict_test::CheckerPath(), options);
    }

    ict_test::TempDir dir_;
};

TEST_F(HostileManifestEndToEnd, EachManifestFailsSayingWhereOrChecksWhatItSays) {
    const std::string name = (dir_ / "product" / "manifest.xml").string();
    const std::string invalid = "Manifest file " + name + " is invalid at row ";
    const Case cases[] = {
        {"50,000 levels",
         Deep(50000),
         1,
         {invalid + "1, column 776: XML nesting deeper than 256 levels"}},
        {"ends inside a character",
         "<Manifest>aaaa\xC7",
         1,
         {invalid + "1, column 15: partial character"}},
        {"reference to zero",
         ExistsRecord("%ProductRoot%/a.dll&#0;.missing"),
         1,
         {invalid + "2, column 32: reference to invalid character number"},
         "SUCCEEDED"},
        {"reference past Unicode",
         ExistsRecord("%ProductRoot%/a.dll&#xFFFFFFFF;"),
         1,
         {invalid + "2, column 32: reference to invalid character number"},
         "SUCCEEDED"},
        {"bare ampersand",
         ExistsRecord("%ProductRoot%/a.dll&.missing"),
         1,
         {invalid + "2, column 33: not well-formed (invalid token)"},
         "SUCCEEDED"},
        {"older path with blanks",
         "<IntegrityManifest><File><Path>%ProductRoot%/ b  c.txt </Path>"
         "<Hash algorithm=\"SHA256\">PiPoFgA5WUoziU9lZOGxNIu9egCI1CxKy3PurtWcAJ0=</Hash></File>"
         "</IntegrityManifest>",
         0,
         {}},
        {"doubling values",
         Doubling(30),
         1,
         {"manifest " + name + " failed. Reason: Expanded text of %ProductRoot%/%K0% is too long"}},
        {"unused entry that refers to itself",
         "<Manifest><Environment key=\"A\" value=\"%A%/x\"/>\n"
         "<File path=\"%ProductRoot%/a.dll\"><Check type=\"Exists\"/></File></Manifest>",
         0,
         {}},
        {"entry for another system",
         "<Manifest><Environment key=\"Name\" value=\"a.dll\"/>\n"
         "<Environment key=\"Name\" value=\"missing.dll\" os=\"Windows\"/>\n"
         "<File path=\"%ProductRoot%/%Name%\"><Check type=\"Exists\"/></File></Manifest>",
         0,
         {}},
        {"invalid name",
         "<Manifest>\n\n<File path=\"x\" os=\"linux\"/></Manifest>",
         1,
         {invalid + "3: Invalid name: linux"}},
    };
    for (const auto& item : cases) {
        SCOPED_TRACE(item.what);
        ict_test::WriteText(Manifest(), item.manifest);
        const auto run = Run({Manifest().string()});
        EXPECT_EQ(run.exitCode, item.exitCode) << run.Describe();
        for (const auto& line : item.errorLines) {
            EXPECT_THAT(ict_test::SplitLines(run.err), testing::Contains(line)) << run.Describe();
        }
        if (!item.absent.empty()) {
            EXPECT_THAT(run.out + run.err, Not(HasSubstr(item.absent)));
        }
        EXPECT_THAT(item.exitCode == 0 ? run.out : run.err,
                    HasSubstr(item.exitCode == 0 ? "SUCCEEDED" : "FAILED"));
    }
}

// With two manifests the failure line names both; the line before it names
// the one that failed, and only that one.
TEST_F(HostileManifestEndToEnd, TheBrokenOneOfTwoManifestsIsNamed) {
    const fs::path good = dir_ / "good.xml";
    const fs::path broken = dir_ / "broken.xml";
    ict_test::WriteText(good, ExistsRecord("/"));
    ict_test::WriteText(broken, "<Manifest>\n  <File path=\"/\">\n</Manifest>\n");
    const auto run = Run({good.string(), broken.string()});
    EXPECT_EQ(run.exitCode, 1) << run.Describe();
    const auto lines = ict_test::SplitLines(run.err);
    const std::string location =
        "Manifest file " + broken.string() + " is invalid at row 3, column 3: mismatched tag";
    const auto at = std::find(lines.begin(), lines.end(), location);
    ASSERT_NE(at, lines.end()) << run.Describe();
    ASSERT_NE(at + 1, lines.end());
    EXPECT_THAT(*(at + 1), HasSubstr(" failed. Reason: mismatched tag"));
    EXPECT_THAT(run.err, Not(HasSubstr("Manifest file " + good.string())));
}

// A misspelt condition is named, with its element and row, as a warning.
TEST_F(HostileManifestEndToEnd, UnknownAttributesAreWarnedOf) {
    ict_test::WriteText(Manifest(),
                        "<Manifest>\n<File path=\"%ProductRoot%/a.dll\" bitnes=\"64\">"
                        "<Check type=\"Exists\"/></File></Manifest>");
    const fs::path trace = dir_ / "trace.log";
    const auto run = Run({"--trace", trace.string(), Manifest().string()});
    EXPECT_EQ(run.exitCode, 0) << run.Describe();
    EXPECT_THAT(ict_test::ReadText(trace),
                HasSubstr("WARNING Unknown attribute bitnes of File at row 2 of manifest " +
                          Manifest().string() + " is ignored"));
}

}  // namespace
