// The program as a user starts it: help, version, the trace file, and how a
// run that cannot start ends.
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <boost/filesystem/operations.hpp>

#include "build_info.h"
#include "support/e2e_product.h"

namespace {

namespace fs = boost::filesystem;
using testing::EndsWith;
using testing::HasSubstr;

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

const std::string kVersionLine = std::string("Version ") + ICT_PRODUCT_VERSION + "\n";

class FoundationE2eTest : public testing::Test {
protected:
    ict_test::RunResult Run(std::vector<std::string> arguments) {
        return ict_test::e2e::Checker(std::move(arguments), dir_.Path());
    }

    ict_test::TempDir dir_;
};

TEST_F(FoundationE2eTest, HelpAloneOrWithOtherOptionsPrintsOnlyTheHelp) {
    for (const auto& arguments : std::vector<std::vector<std::string>>{
             {"--help"}, {"--verbose", "--help", "--trace", "t.log", "--version", "missing.xml"}}) {
        const auto run = Run(arguments);
        EXPECT_EQ(run.exitCode, 0) << run.Describe();
        EXPECT_EQ(run.out, kHelp);
        EXPECT_EQ(run.err, "");
    }
    // No tracer was made, so no trace file either.
    EXPECT_FALSE(fs::exists(dir_ / "t.log"));
}

TEST_F(FoundationE2eTest, VersionNeedsNoManifestAndTheTraceFileGetsTheStartUpLines) {
    ASSERT_FALSE(fs::exists(ict_test::CheckerPath().parent_path() / "integrity_check.xml"));
    // Appending to a trace file is the tracer's test; a run starts its part
    // with the start-up lines.
    const auto log = dir_ / "run.log";
    const auto run = Run({"--version", "--trace", log.string()});
    EXPECT_EQ(run.exitCode, 0) << run.Describe();
    EXPECT_EQ(run.out, kVersionLine + "SUCCEEDED\n");
    EXPECT_EQ(run.err, "");
    const std::string text = ict_test::ReadText(log);
    EXPECT_THAT(text, HasSubstr(std::string(" START Version ") + ICT_PRODUCT_VERSION + "\n"));
    EXPECT_THAT(text, HasSubstr(" START Schema version: 3\n"));
    EXPECT_THAT(text, HasSubstr(" DEBUG Application configuration:\n{\n"));

    // Broken locale settings fall back to the classic locale.
    ict_test::RunOptions options;
    options.arguments = {"--version"};
    options.environment = {{"LANG", "xx_NOWHERE.UTF-8"}, {"LC_ALL", "xx_NOWHERE.UTF-8"}};
    const auto broken = ict_test::RunProgram(ict_test::CheckerPath(), options);
    EXPECT_EQ(broken.exitCode, 0) << broken.Describe();
    EXPECT_EQ(broken.out, kVersionLine + "SUCCEEDED\n");
}

// Parser errors come with the help; other start failures say why alone.
TEST_F(FoundationE2eTest, ARunThatCannotStartSaysWhyAndFails) {
    const std::string help = "\n\n" + std::string(kHelp);
    const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
        {{"--bogus"}, "unrecognised option '--bogus'" + help},
        {{"--version", "--trace"}, "the required argument for option '--trace' is missing" + help},
        {{"--version", "--signature-type", "bogus"}, "Invalid name: bogus"},
        // Without arguments the manifest beside the program is meant, not one here.
        {{},
         "Manifest path \"" +
             (ict_test::CheckerPath().parent_path() / "integrity_check.xml").string() +
             "\" can't be resolved"},
    };
    ict_test::WriteText(dir_ / "integrity_check.xml", "<Manifest/>");
    for (const auto& [arguments, error] : cases) {
        SCOPED_TRACE(error);
        const auto run = Run(arguments);
        EXPECT_EQ(run.exitCode, 1) << run.Describe();
        EXPECT_EQ(run.out, "");
        EXPECT_THAT(run.err, HasSubstr(error));
        if (error.find(help) != std::string::npos) {
            EXPECT_THAT(run.err, HasSubstr("Throw in function void "
                                           "integrity_check_tool::Arguments::RethrowWithHelp"));
        }
        EXPECT_THAT(run.err, EndsWith("\nFAILED\n"));
    }
}

}  // namespace
