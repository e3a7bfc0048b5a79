#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/enum_printing.h"

#include <sstream>

#include <boost/filesystem/operations.hpp>

#include "common/exception.h"
#include "generate/parallel_jobs.h"
#include "manifest_arguments.h"
#include "support/thrown.h"

namespace integrity_check_tool {
namespace {

namespace fs = boost::filesystem;
using testing::HasSubstr;
using testing::StartsWith;

std::shared_ptr<ApplicationConfiguration> Build(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "integrity_manifest");
    ManifestToolArguments parsed;
    parsed.Parse(arguments);
    return parsed.BuildConfiguration();
}

std::string ErrorOf(std::vector<std::string> arguments) {
    return ict_test::ThrownText<Exception>([&] { Build(std::move(arguments)); });
}

TEST(ManifestArgumentsTest, GenerateFillsOnlyItsSectionWithAbsolutePaths) {
    const auto configuration = Build({"generate", "--config", "c.xml", "--output", "out/../m.xml"});
    ASSERT_TRUE(configuration->generate);
    EXPECT_FALSE(configuration->normalize);
    EXPECT_FALSE(configuration->singleFileCheck);
    EXPECT_FALSE(configuration->verify);
    EXPECT_FALSE(configuration->displayVersion);
    EXPECT_FALSE(configuration->logFile);
    EXPECT_EQ(configuration->logLevel, 600u);
    const auto& settings = *configuration->generate;
    EXPECT_EQ(settings.configPath, fs::current_path() / "c.xml");
    EXPECT_EQ(settings.manifestPath, fs::current_path() / "m.xml");
    EXPECT_EQ(settings.version, "");
    EXPECT_FALSE(settings.stampArch);
    EXPECT_FALSE(settings.stampOsEdition);
    EXPECT_EQ(settings.threads, generate::DefaultThreadCount());

    const auto stamped =
        Build({"generate", "--config", "/c.xml", "--output", "/m.xml", "--arch", "ARM64",
               "--edition", "Server", "--version", "6.1", "--trace", "log.txt", "--threads", "3"});
    EXPECT_EQ(stamped->generate->threads, 3u);
    // The largest thread count is still one.
    EXPECT_EQ(Build({"generate", "--config", "c", "--output", "m", "--threads", "256"})
                  ->generate->threads,
              256u);
    EXPECT_EQ(stamped->generate->arch, Arch::ARM64);
    EXPECT_TRUE(stamped->generate->stampArch);
    EXPECT_EQ(stamped->generate->osEdition, OsEdition::Server);
    EXPECT_TRUE(stamped->generate->stampOsEdition);
    EXPECT_EQ(stamped->generate->version, "6.1");
    EXPECT_EQ(stamped->logFile, fs::path("log.txt"));
    EXPECT_EQ(stamped->logLevel, 800u);
}

TEST(ManifestArgumentsTest, NormalizeAndHashTakeTheirOperand) {
    const auto normalize = Build({"normalize", "/x/m.xml"});
    ASSERT_TRUE(normalize->normalize);
    // Windows puts the current drive in front and writes its own separators.
    EXPECT_EQ(normalize->normalize->manifestPath.string(),
              (fs::current_path().root_name() / "/x/m.xml").make_preferred().string());
    EXPECT_FALSE(normalize->generate);

    for (const auto type : {CheckType::Sha256, CheckType::Gost2012, CheckType::Value}) {
        const auto hash = Build({"hash", "--type", ToName(type), "a.dll"});
        ASSERT_TRUE(hash->singleFileCheck);
        EXPECT_EQ(hash->singleFileCheck->checkType, type);
        EXPECT_EQ(hash->singleFileCheck->filePath, fs::path("a.dll"));
    }
}

TEST(ManifestArgumentsTest, MisuseIsExplainedWithTheHelpText) {
    const std::pair<std::vector<std::string>, std::string> cases[] = {
        {{}, "A command is needed: generate, normalize or hash"},
        {{"sign", "x"}, "Unknown command sign: use generate, normalize or hash"},
        {{"generate", "--output", "m.xml"}, "generate needs the option --config"},
        {{"generate", "--config", "c", "--output", "m", "extra"},
         "generate takes no operand, but extra was given"},
        {{"normalize"}, "normalize needs a MANIFEST to work on"},
        {{"normalize", "m.xml", "--arch", "X86"}, "Option --arch does not apply to normalize"},
        {{"normalize", "m.xml", "--threads", "2"}, "Option --threads does not apply to normalize"},
        {{"generate", "--config", "c", "--output", "m", "--threads", "0"},
         "Invalid thread count 0: use a number from 1 to 256"},
        {{"generate", "--config", "c", "--output", "m", "--threads", "257"},
         "Invalid thread count 257: use a number from 1 to 256"},
        {{"generate", "--config", "c", "--output", "m", "--threads", "two"},
         "Invalid thread count two: use a number from 1 to 256"},
        {{"hash", "a.dll"}, "hash needs the option --type"},
        {{"hash", "--type", "Exists", "a.dll"},
         "Invalid hash type Exists: use Sha256, Gost2012 or Value"},
        {{"hash", "--type", "Sha256", "a", "b"},
         "too many positional options have been specified on the command line"},
        {{"--bogus"}, "unrecognised option '--bogus'"},
    };
    for (const auto& [arguments, message] : cases) {
        const std::string error = ErrorOf(arguments);
        EXPECT_THAT(error, StartsWith(message + "\n\n")) << message;
        EXPECT_THAT(error, HasSubstr("Usage:\n  integrity_manifest generate --config FILE"));
    }
}

TEST(ManifestArgumentsTest, BadValuesNameThemselves) {
    EXPECT_EQ(ErrorOf({"generate", "--config", "c", "--output", "m", "--arch", "x64"}),
              "Invalid name: x64");
    EXPECT_EQ(ErrorOf({"generate", "--config", "c", "--output", "m", "--edition", "Home"}),
              "Invalid name: Home");
    EXPECT_EQ(ErrorOf({"generate", "--config", "c", "--output", "m", "--version", "ten"}),
              "Invalid version ten: expected major.minor (10.0) or a number (1000)");
    EXPECT_EQ(ErrorOf({"hash", "--type", "sha256", "a"}), "Invalid name: sha256");
}

TEST(ManifestArgumentsTest, HelpNeedsNoCommandAndListsEveryCommand) {
    ManifestToolArguments arguments;
    arguments.Parse({"integrity_manifest", "--help"});
    ASSERT_TRUE(arguments.IsHelpRequested());
    std::ostringstream help;
    arguments.PrintHelp(help);
    EXPECT_THAT(help.str(), StartsWith("Makes and maintains manifests for integrity_checker.\n"));
    EXPECT_THAT(help.str(), HasSubstr("  integrity_manifest normalize MANIFEST\n"));
    EXPECT_THAT(help.str(),
                HasSubstr("  integrity_manifest hash --type Sha256|Gost2012|Value FILE\n"));
    EXPECT_THAT(help.str(), HasSubstr("[--threads N]"));
}

}  // namespace
}  // namespace integrity_check_tool
