#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <boost/filesystem/operations.hpp>

#include "build_info.h"
#include "support/e2e.h"

namespace {

namespace fs = boost::filesystem;
using testing::ContainsRegex;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

const char* const kHelp =
    "Use to check if the manifest file is in the same folder: integrity_checker [options]\n"
    "Otherwise: integrity_checker [options] manifest...\n"
    "Options:\n"
    "  --help                        display Help for tool settings\n"
    "  --version                     display tool version\n"
    "  --verbose                     extended info output\n"
    "  --trace arg                   file for logging at the DEBUG level\n"
    "  --signature-type arg (=dsvm2) signature type( dsvm2 | vds | vds-with-filename )\n"
    "  --signature-only              verify only file signature\n"
    "  --crl arg                     VDS CRL file or storage directory\n"
    "  --single_file arg             verify only specified file\n"
    "  --define arg                  set definition for manifest or configuration filtering\n";

// The property-tree JSON writer escapes every '/'.
std::string EscapedForJson(const std::string& text) {
    std::string escaped;
    for (const char c : text) {
        if (c == '/') {
            escaped += '\\';
        }
        escaped += c;
    }
    return escaped;
}

const std::string kVersionLine = std::string("Version ") + ICT_PRODUCT_VERSION + "\n";

class FoundationE2eTest : public testing::Test {
protected:
    ict_test::RunResult Run(std::vector<std::string> arguments) {
        ict_test::RunOptions options;
        options.arguments = std::move(arguments);
        options.workingDirectory = dir_.Path();
        return ict_test::RunProgram(ict_test::CheckerPath(), options);
    }

    ict_test::TempDir dir_;
};

TEST_F(FoundationE2eTest, HelpAloneOrWithOtherOptionsPrintsOnlyTheHelp) {
    for (const auto& arguments : std::vector<std::vector<std::string>>{
             {"--help"},
             {"--verbose", "--help", "--trace", "t.log", "--define", "x", "missing.xml"},
             {"--version", "--help"}}) {
        const auto run = Run(arguments);
        EXPECT_EQ(run.exitCode, 0) << run.Describe();
        EXPECT_EQ(run.out, kHelp);
        EXPECT_EQ(run.err, "");
    }
    // No tracer was made, so no trace file either.
    EXPECT_FALSE(fs::exists(dir_ / "t.log"));
}

TEST_F(FoundationE2eTest, VersionNeedsNoManifest) {
    ASSERT_FALSE(fs::exists(ict_test::CheckerPath().parent_path() / "integrity_check.xml"));
    const auto run = Run({"--version"});
    EXPECT_EQ(run.exitCode, 0) << run.Describe();
    EXPECT_EQ(run.out, kVersionLine + "SUCCEEDED\n");
    EXPECT_EQ(run.err, "");
}

TEST_F(FoundationE2eTest, ParserErrorsPrintTheMessageTheHelpAndFailed) {
    const struct {
        std::vector<std::string> arguments;
        std::string error;
    } cases[] = {
        {{"--bogus"}, "unrecognised option '--bogus'"},
        {{"--version", "--trace"}, "the required argument for option '--trace' is missing"},
        {{"--version", "--single_file", "a", "--single_file", "b"},
         "option '--single_file' cannot be specified more than once"},
    };
    for (const auto& testCase : cases) {
        const auto run = Run(testCase.arguments);
        EXPECT_EQ(run.exitCode, 1) << run.Describe();
        EXPECT_EQ(run.out, "");
        EXPECT_THAT(run.err, HasSubstr("Throw in function void "
                                       "integrity_check_tool::Arguments::RethrowWithHelp"));
        EXPECT_THAT(run.err, HasSubstr(testCase.error + "\n\n" + kHelp));
        EXPECT_THAT(run.err, EndsWith("\nFAILED\n"));
    }
}

TEST_F(FoundationE2eTest, UnknownSignatureTypeFails) {
    const auto run = Run({"--version", "--signature-type", "bogus"});
    EXPECT_EQ(run.exitCode, 1) << run.Describe();
    EXPECT_EQ(run.out, "");
    EXPECT_THAT(run.err, HasSubstr("Invalid name: bogus"));
    EXPECT_THAT(run.err, EndsWith("FAILED\n"));
}

TEST_F(FoundationE2eTest, TraceFileReceivesTheStartUpLinesInsteadOfTheConsole) {
    const auto log = dir_ / "logs" / "run.log";
    fs::create_directories(log.parent_path());
    const auto traced = Run({"--version", "--trace", log.string()});
    EXPECT_EQ(traced.exitCode, 0) << traced.Describe();
    EXPECT_EQ(traced.out, kVersionLine + "SUCCEEDED\n");
    EXPECT_EQ(traced.err, "");
    const std::string text = ict_test::ReadText(log);
    EXPECT_THAT(text, ContainsRegex(std::string(" START Version ") + ICT_PRODUCT_VERSION + "\n"));
    EXPECT_THAT(text, HasSubstr(" START Schema version: 3\n"));
    EXPECT_THAT(text, HasSubstr(" DEBUG Application configuration:\n{\n"));
    EXPECT_THAT(text, HasSubstr("\"displayVersion\": \"true\""));
    EXPECT_THAT(text, HasSubstr("\"logFile\": \"" + EscapedForJson(log.string()) + "\""));

    const auto console = Run({"--version"});
    for (const auto& output : {console.out, console.err}) {
        EXPECT_THAT(output, Not(HasSubstr("Schema version")));
        EXPECT_THAT(output, Not(HasSubstr("Application configuration")));
    }
    EXPECT_EQ(console.out, kVersionLine + "SUCCEEDED\n");
}

TEST_F(FoundationE2eTest, TraceIntoADirectoryCannotCreateTheTracer) {
    const auto run = Run({"--version", "--trace", dir_.Path().string()});
    EXPECT_EQ(run.exitCode, 1) << run.Describe();
    EXPECT_EQ(run.out, "");
    EXPECT_THAT(run.err, HasSubstr("Can't create tracer. Reason: "));
    EXPECT_THAT(run.err, HasSubstr("Trace path \"" + dir_.Path().string() + "\" is not a file"));
    EXPECT_THAT(run.err, EndsWith("FAILED\n"));
}

TEST_F(FoundationE2eTest, RevocationListOnAFifoIsRefused) {
    const auto manifest = dir_ / "m.xml";
    ict_test::WriteText(manifest, "<Manifest/>");
    const auto fifo = dir_ / "crl";
    ict_test::MakeFifo(fifo);
    const auto run = Run({"--crl", fifo.string(), manifest.string()});
    EXPECT_EQ(run.exitCode, 1) << run.Describe();
    EXPECT_THAT(run.err,
                HasSubstr("CRL path \"" + fifo.string() + "\" is not a directory or regular file"));
    EXPECT_THAT(run.err, EndsWith("FAILED\n"));
}

TEST_F(FoundationE2eTest, MissingManifestIsNamed) {
    const auto run = Run({"missing.xml"});
    EXPECT_EQ(run.exitCode, 1) << run.Describe();
    EXPECT_THAT(run.err, HasSubstr("Manifest path \"missing.xml\" can't be resolved. Reason: "));
    EXPECT_THAT(run.err, EndsWith("FAILED\n"));

    // Without arguments the manifest beside the program is meant, not one here.
    ict_test::WriteText(dir_ / "integrity_check.xml", "<Manifest/>");
    const auto beside = Run({});
    EXPECT_EQ(beside.exitCode, 1) << beside.Describe();
    EXPECT_THAT(beside.err,
                HasSubstr("Manifest path \"" +
                          (ict_test::CheckerPath().parent_path() / "integrity_check.xml").string() +
                          "\" can't be resolved"));
}

TEST_F(FoundationE2eTest, BrokenLocaleSettingsFallBackToTheClassicLocale) {
    ict_test::RunOptions options;
    options.arguments = {"--version"};
    options.environment["LANG"] = "xx_NOWHERE.UTF-8";
    options.environment["LC_ALL"] = "xx_NOWHERE.UTF-8";
    const auto run = ict_test::RunProgram(ict_test::CheckerPath(), options);
    EXPECT_EQ(run.exitCode, 0) << run.Describe();
    EXPECT_EQ(run.out, kVersionLine + "SUCCEEDED\n");
}

}  // namespace
