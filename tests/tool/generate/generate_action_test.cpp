#include <sstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <boost/regex.hpp>

#include "support/enum_printing.h"

#include "action/generate.h"
#include "common/console_output.h"
#include "factory/factory.h"
#include "support/trace_capture.h"
#include "tool/generate/file_rights.h"
#include "xml/file.h"

namespace integrity_check_tool::action {
namespace {

namespace fs = boost::filesystem;
using testing::HasSubstr;
using testing::StartsWith;

// The time of generation is the one thing two runs may differ in.
std::string Timeless(const std::string& text) {
    return boost::regex_replace(text, boost::regex(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ)"), "TIME");
}

// A product tree in a temporary folder, a tracer whose lines can be read
// back and console streams in memory.
class GenerateActionTest : public testing::Test {
protected:
    GenerateSettings Settings(const std::string& config, const fs::path& manifest) {
        ict_test::WriteText(dir_ / "config" / "generation.xml", config);
        GenerateSettings settings;
        settings.configPath = dir_ / "config" / "generation.xml";
        settings.manifestPath = manifest;
        return settings;
    }

    bool Run(const GenerateSettings& settings) {
        ApplicationConfiguration configuration;
        configuration.generate = settings;
        Generate action(
            std::make_shared<Factory>(
                trace_.Tracer(),
                std::make_shared<ApplicationConfiguration>(std::move(configuration)), nullptr),
            std::make_shared<ConsoleOutput>(true, out_, err_));
        EXPECT_EQ(action.GetName(), "Generate");
        return action.Execute();
    }

    ManifestPtr Load(const fs::path& path) { return xml::File(nullptr).Load(path); }
    std::vector<std::string> Messages() const { return trace_.Messages(); }

    ict_test::TempDir dir_;
    ict_test::TraceCapture trace_;
    std::ostringstream out_;
    std::ostringstream err_;
};

TEST_F(GenerateActionTest, GroupPlaceholdersValuesAndStamps) {
    for (const char* file : {"bin/a.dll", "bin/sub/b.dll", "bin/a.pdb"}) {
        ict_test::WriteText(dir_ / "product" / file, "abc");
    }
    ict_test::WriteText(dir_ / "product" / "readme.txt", "hello");
    auto settings = Settings(R"(<ManifestGeneration productName="Demo" productVersion="2.0"
                                                     productRoot="../product">
  <Environment key="Bin" value="%ProductRoot%\bin"/>
  <Directory path="%Bin%\" group="true" bitness="64"><Include pattern="*.dll"/></Directory>
  <File path="%ProductRoot%\readme.txt" arch="X86_64"><Check type="Value"/></File>
  <File path="%ProductRoot%\debug.log"><Check type="NotExists"/></File>
  <Registry path="HKEY_LOCAL_MACHINE\SOFTWARE\Microsoft\Windows NT\CurrentVersion">
    <Value name="CurrentVersion" type="REG_SZ"/></Registry>
</ManifestGeneration>)",
                             dir_ / "m.xml");
    settings.version = "10.0";
    settings.arch = Arch::X86;
    settings.stampArch = true;
    settings.osEdition = OsEdition::Server;
    settings.stampOsEdition = true;

    ASSERT_TRUE(Run(settings)) << err_.str();

    // The configured condition wins over the stamp; the group's members take
    // the group's conditions where the manifest is read.
    EXPECT_THAT(Timeless(ict_test::ReadText(dir_ / "m.xml")),
                StartsWith(R"(<?xml version="1.0" encoding="UTF-8" ?>
<Manifest productName="Demo" productVersion="2.0" generationDateTime="TIME">
    <Environment key="Bin" value="%ProductRoot%\bin" />
    <File path="%ProductRoot%\debug.log" arch="X86" edition="Server" minVersionNt="1000">
        <Check type="NotExists" />
    </File>
    <File path="%ProductRoot%\readme.txt" arch="X86_64" edition="Server" minVersionNt="1000">
        <Check type="Value" value="aGVsbG8=" />
    </File>
    <Files path="%Bin%" arch="X86" edition="Server" bitness="64" minVersionNt="1000">
        <File path="a.dll">
            <Check type="Sha256" value="ungWv48Bz+pBQUDeXa4iI7ADYaOWF3qctBD/YfIAFa0=" />
        </File>
        <File path="sub\b.dll">
            <Check type="Sha256" value="ungWv48Bz+pBQUDeXa4iI7ADYaOWF3qctBD/YfIAFa0=" />
        </File>
    </Files>
)"));
    // A value every Windows has (Wine too), so that a run there reads a real one.
    const auto manifest = Load(dir_ / "m.xml");
    const auto& key = *manifest->registries.at(0);
    const CheckInfo& captured = key.values.at(0)->checks.at(0);
    EXPECT_EQ(key.values[0]->type, RegistryType::Sz);
#ifdef _WIN32
    // Read from the registry: its content is recorded, for every system.
    EXPECT_FALSE(key.filter.os);
    EXPECT_EQ(captured.type, CheckType::Value);
    EXPECT_FALSE(captured.value.empty());
#else
    // No registry here: the value is promised to exist, on Windows only.
    EXPECT_EQ(key.filter.os, Os::Windows);
    EXPECT_EQ(captured.type, CheckType::Exists);
#endif

    EXPECT_THAT(out_.str(), HasSubstr("Manifest " + (dir_ / "m.xml").string() + " written\n"));
    EXPECT_THAT(out_.str(), HasSubstr("\tFiles: 0 / 0 / 4\n\tDirectories: 0 / 0 / 1\n"));
    EXPECT_THAT(out_.str(), HasSubstr("\tRegistry values: 0 / 0 / 1\n"));
    EXPECT_EQ(err_.str(), "");
}

// Where names ignore letter case, both spellings are one file: listed again
// with the same checks it is listed once, with others it is refused. Where
// they do not, the capitals name a file that is not there.
TEST_F(GenerateActionTest, OneFileUnderTwoSpellingsIsOneFileWhereNamesIgnoreCase) {
    ict_test::WriteText(dir_ / "product" / "readme.txt", "hello");
    const auto listedTwice = [&](const std::string& check) {
        return Settings(R"(<ManifestGeneration productRoot="../product">
  <File path="%ProductRoot%\readme.txt"><Check type="Sha256"/></File>
  <File path="%ProductRoot%\README.TXT"><Check type=")" +
                            check + "\"/></File>\n</ManifestGeneration>",
                        dir_ / "m.xml");
    };
#ifdef _WIN32
    ASSERT_TRUE(Run(listedTwice("Sha256"))) << err_.str();
    EXPECT_EQ(Load(dir_ / "m.xml")->files.size(), 1u);
    EXPECT_FALSE(Run(listedTwice("Exists")));
    EXPECT_THAT(err_.str(), HasSubstr("README.TXT is already listed with other checks\n"));
#else
    EXPECT_FALSE(Run(listedTwice("Sha256")));
    EXPECT_THAT(err_.str(), HasSubstr("README.TXT not found\n"));
#endif
}

TEST_F(GenerateActionTest, OutputThatIsTheConfigurationIsRefused) {
    const std::string config = R"(<ManifestGeneration productRoot=".">
  <File path="%ProductRoot%\generation.xml"><Check type="Exists"/></File>
</ManifestGeneration>)";
    const fs::path configPath = dir_ / "config" / "generation.xml";
    fs::create_directories(dir_ / "elsewhere");
    const auto refused = [&](const fs::path& output) {
        EXPECT_FALSE(Run(Settings(config, output))) << output;
        EXPECT_EQ(ict_test::ReadText(configPath), config) << output;
        EXPECT_THAT(err_.str(),
                    HasSubstr("Generation of manifest " + output.string() +
                              " failed. Reason: it would overwrite the generation configuration " +
                              configPath.string() + "\n"));
    };
    refused(dir_ / "elsewhere" / ".." / "config" / "generation.xml");
    if (ict_test::SymbolicLinksWork(dir_.Path())) {
        fs::create_symlink(configPath, dir_ / "elsewhere" / "link.xml");
        refused(dir_ / "elsewhere" / "link.xml");
    }
}

// Files are hashed on several threads, but what is written, traced and
// reported must be what one thread gives, in the same order: a clean tree
// gives the same manifest byte for byte, a tree with failures the same lines
// and leaves the old manifest as it was.
TEST_F(GenerateActionTest, ThreadCountChangesNothingButSpeedAndAnyFailureWritesNothing) {
    for (int index = 0; index < 40; ++index) {
        const std::string folder = index % 3 == 0 ? "bin" : index % 3 == 1 ? "bin/sub" : "lib";
        ict_test::WriteText(dir_ / "product" / folder / ("f" + std::to_string(index) + ".dll"),
                            std::string(static_cast<std::size_t>(index) * 997, char('a' + index)));
    }
    ict_test::WriteText(dir_ / "product" / "bin" / "%HOME%.dll", "refused name");
    ict_test::WriteText(dir_ / "product" / "other" / "shut" / "x.dll", "in a closed folder");
    ict_test::WriteText(dir_ / "product" / "other" / "y.dll", "beside it");
    const std::string clean = R"(<ManifestGeneration productRoot="../product">
  <Directory path="%ProductRoot%\bin" group="true"><Check type="Sha256"/><Check type="Gost2012"/></Directory>
  <Directory path="%ProductRoot%\lib"><Check type="Exists"/><Check type="Value"/></Directory>
</ManifestGeneration>)";
    // Files listed again with other checks, a file that can't be read, a
    // folder that can't be listed, one that is not there, files that are or
    // are not where their only check says: failures before, while and after
    // values are computed.
    const std::string failing = R"(<ManifestGeneration productRoot="../product">
  <Directory path="%ProductRoot%\bin" group="true"><Check type="Exists"/><Check type="Sha256"/></Directory>
  <Directory path="%ProductRoot%\bin\sub"><Check type="Value"/></Directory>
  <Directory path="%ProductRoot%\other"/>
  <Directory path="%ProductRoot%\nothing"/>
  <File path="%ProductRoot%\bin\f0.dll"><Check type="Value"/></File>
  <File path="%ProductRoot%\missing.txt"><Check type="Exists"/></File>
  <File path="%ProductRoot%\lib\f2.dll"><Check type="NotExists"/></File>
</ManifestGeneration>)";
    const fs::path locked[] = {dir_ / "product" / "bin" / "f3.dll",
                               dir_ / "product" / "other" / "shut"};

    // Whether it succeeded, its output, the manifest and the trace.
    const auto generate = [&](const std::string& config, unsigned threads, bool lock) {
        out_.str("");
        err_.str("");
        const std::size_t tracedBefore = Messages().size();
        ict_test::WriteText(dir_ / "m.xml", "old manifest");
        auto settings = Settings(config, dir_ / "m.xml");
        settings.threads = threads;
        for (const auto& path : locked) {
            ict_test::SetPermissions(path, lock ? fs::no_perms : fs::owner_all);
        }
        bool succeeded = false;
        {
            ict_test::ObeyFilePermissions obey;
            succeeded = Run(settings);
        }
        for (const auto& path : locked) {
            ict_test::SetPermissions(path, fs::owner_all);
        }
        std::string outcome = std::string(succeeded ? "succeeded" : "failed") + "\nout:\n" +
                              out_.str() + "\nerr:\n" + err_.str() + "\nmanifest:\n" +
                              ict_test::ReadText(dir_ / "m.xml") + "\ntrace:\n";
        const auto messages = Messages();
        for (std::size_t line = tracedBefore; line < messages.size(); ++line) {
            outcome += messages[line] + "\n";
        }
        return Timeless(outcome);
    };

    const std::string one = generate(clean, 1, false);
    ASSERT_THAT(one, StartsWith("succeeded\n"));
    EXPECT_THAT(one, HasSubstr("f39.dll"));
    EXPECT_THAT(one, HasSubstr("Checker Gost2012 added for %ProductRoot%\\bin\\sub\\f37.dll\n"));
    EXPECT_EQ(generate(clean, 4, false), one);

    const std::string oneFailing = generate(failing, 1, true);
    EXPECT_THAT(oneFailing, StartsWith("failed\n"));
    EXPECT_THAT(oneFailing, HasSubstr("\nmanifest:\nold manifest\n"));
    const auto product = [this](const char* name) {
        return (dir_ / "product" / name).make_preferred().string();
    };
    for (const std::string& line :
         {"Generation of file %ProductRoot%\\bin\\sub\\f1.dll failed. Reason: " +
              product("bin/sub/f1.dll") + " is already listed with other checks\n",
          "Generation of directory %ProductRoot%\\nothing failed. Reason: Can't enumerate " +
              product("nothing") + ". Reason: ",
          "Generation of file %ProductRoot%\\bin\\f0.dll failed. Reason: " + product("bin/f0.dll") +
              " is already listed with other checks\n",
          "Generation of file %ProductRoot%\\missing.txt failed. Reason: " +
              product("missing.txt") + " does not exist\n",
          "Generation of file %ProductRoot%\\lib\\f2.dll failed. Reason: " + product("lib/f2.dll") +
              " exists, but NotExists is its only check\n",
          "Generation of manifest " + (dir_ / "m.xml").string() +
              " failed. Reason: some of its objects failed, so it was not written\n",
          std::string("\tManifests: 1 / 0 / 0\n")}) {
        EXPECT_THAT(oneFailing, HasSubstr(line));
    }
    if (ict_test::ObeyFilePermissions().Binding()) {
        EXPECT_THAT(oneFailing, HasSubstr("Generation of file %ProductRoot%\\bin\\f3.dll failed"));
        // The folder that can't be listed is named, and what lies around it is read.
        EXPECT_THAT(oneFailing, HasSubstr("Generation of directory %ProductRoot%\\other\\shut "
                                          "failed. Reason: Can't enumerate " +
                                          locked[1].string() + ". Reason: Permission denied\n"));
        EXPECT_THAT(oneFailing, HasSubstr("Generation of directory %ProductRoot%\\other failed. "
                                          "Reason: 1 of its folders could not be listed\n"));
        EXPECT_THAT(oneFailing, HasSubstr("Checker Sha256 added for %ProductRoot%\\other\\y.dll"));
    }
    EXPECT_EQ(generate(failing, 3, true), oneFailing);
}

}  // namespace
}  // namespace integrity_check_tool::action
