#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "support/enum_printing.h"

#include "action/generate.h"
#include "check/hex.h"
#include "tool/generate/file_rights.h"
#include "tool/generate/generate_fixture.h"
#include "xml/file.h"

namespace integrity_check_tool::action {
namespace {

namespace fs = boost::filesystem;
using testing::Contains;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

// SHA-256 of "abc".
const char* kAbcSha256 = "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad";

class GenerateActionTest : public testing::Test, public ict_test::GenerateFixture {
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
        Generate action(MakeFactory(configuration), output_);
        EXPECT_EQ(action.GetName(), "Generate");
        return action.Execute();
    }

    ManifestPtr Load(const fs::path& path) { return xml::File(nullptr).Load(path); }
};

TEST_F(GenerateActionTest, GroupPlaceholdersValuesStampsAndTraces) {
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

    const auto manifest = Load(dir_ / "m.xml");
    EXPECT_EQ(manifest->productName, "Demo");
    EXPECT_EQ(manifest->productVersion, "2.0");
    EXPECT_THAT(manifest->generationDateTime, EndsWith("Z"));
    ASSERT_EQ(manifest->environments.size(), 1u);
    EXPECT_EQ(manifest->environments[0].value, "%ProductRoot%\\bin");

    ASSERT_EQ(manifest->directories.size(), 1u);
    const auto& group = *manifest->directories[0];
    EXPECT_EQ(group.path.string(), "%Bin%");
    EXPECT_EQ(group.filter.bitness, Bitness::Bits64);
    EXPECT_EQ(group.filter.arch, Arch::X86);
    EXPECT_EQ(group.filter.osEdition, OsEdition::Server);
    EXPECT_EQ(group.filter.minVersionNt, 1000u);
    ASSERT_EQ(group.files.size(), 2u);
    EXPECT_EQ(group.files[0]->path.string(), "a.dll");
    EXPECT_EQ(group.files[1]->path.string(), "sub\\b.dll");
    ASSERT_EQ(group.files[1]->checks.size(), 1u);
    EXPECT_EQ(group.files[1]->checks[0].type, CheckType::Sha256);
    EXPECT_EQ(check::ToHex(group.files[1]->checks[0].value), kAbcSha256);

    ASSERT_EQ(manifest->files.size(), 2u);
    const auto& readme = *manifest->files.find("%ProductRoot%\\readme.txt")->second;
    EXPECT_EQ(readme.filter.arch, Arch::X86_64) << "the configured condition must win";
    EXPECT_EQ(readme.filter.osEdition, OsEdition::Server);
    ASSERT_EQ(readme.checks.size(), 1u);
    EXPECT_EQ(readme.checks[0].value, (Bytes{'h', 'e', 'l', 'l', 'o'}));
    const auto& absent = *manifest->files.find("%ProductRoot%\\debug.log")->second;
    EXPECT_EQ(absent.checks.at(0).type, CheckType::NotExists);
    EXPECT_TRUE(absent.checks.at(0).value.empty());

    // A value every Windows has (Wine too), so that a run there reads a real one.
    ASSERT_EQ(manifest->registries.size(), 1u);
    const auto& key = *manifest->registries[0];
    ASSERT_EQ(key.values.size(), 1u);
    EXPECT_EQ(key.values[0]->type, RegistryType::Sz);
    const CheckInfo& captured = key.values[0]->checks.at(0);
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
    EXPECT_THAT(out_.str(), HasSubstr("\tFiles: 0 / 0 / 4\n"));
    EXPECT_THAT(out_.str(), HasSubstr("\tDirectories: 0 / 0 / 1\n"));
    EXPECT_THAT(out_.str(), HasSubstr("\tRegistry values: 0 / 0 / 1\n"));
    EXPECT_EQ(err_.str(), "");
}

TEST_F(GenerateActionTest, AnyFailedObjectLeavesTheOldManifestUntouched) {
    ict_test::WriteText(dir_ / "product" / "readme.txt", "hello");
    ict_test::WriteText(dir_ / "product" / "present.txt", "here");
    ict_test::WriteText(dir_ / "m.xml", "old manifest");
    const auto settings = Settings(R"(<ManifestGeneration productRoot="../product">
  <Directory path="%ProductRoot%"><Include pattern="readme.txt"/></Directory>
  <Directory path="%ProductRoot%\nothing"/>
  <File path="%ProductRoot%\readme.txt"><Check type="Value"/></File>
  <File path="%ProductRoot%\missing.txt"><Check type="Exists"/></File>
  <File path="%ProductRoot%\present.txt"><Check type="NotExists"/></File>
</ManifestGeneration>)",
                                   dir_ / "m.xml");

    EXPECT_FALSE(Run(settings));

    EXPECT_EQ(ict_test::ReadText(dir_ / "m.xml"), "old manifest");
    const auto product = [this](const char* name) { return (dir_ / "product" / name).string(); };
    const std::string err = err_.str();
    EXPECT_THAT(err, HasSubstr("Generation of directory %ProductRoot%\\nothing failed. Reason: "
                               "Can't enumerate " +
                               product("nothing") + ". Reason: "));
    EXPECT_THAT(err, HasSubstr("Generation of file %ProductRoot%\\readme.txt failed. Reason: " +
                               product("readme.txt") + " is already listed with other checks\n"));
    EXPECT_THAT(err, HasSubstr("Generation of file %ProductRoot%\\missing.txt failed. Reason: " +
                               product("missing.txt") + " does not exist\n"));
    EXPECT_THAT(err,
                HasSubstr("Generation of file %ProductRoot%\\present.txt failed. Reason: " +
                          product("present.txt") + " exists, but NotExists is its only check\n"));
    EXPECT_THAT(err,
                HasSubstr("Generation of manifest " + (dir_ / "m.xml").string() +
                          " failed. Reason: some of its objects failed, so it was not written"));
    EXPECT_THAT(out_.str(), HasSubstr("\tManifests: 1 / 0 / 0\n"));
    EXPECT_THAT(out_.str(), HasSubstr("\tFiles: 3 / 0 / 1\n"));
    EXPECT_THAT(out_.str(), HasSubstr("\tDirectories: 1 / 0 / 1\n"));
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
    refused(configPath);
    refused(dir_ / "elsewhere" / ".." / "config" / "generation.xml");
    if (!ict_test::SymbolicLinksWork(dir_.Path())) {
        GTEST_SKIP() << "this system does not let the test make symbolic links";
    }
    fs::create_symlink(configPath, dir_ / "elsewhere" / "link.xml");
    refused(dir_ / "elsewhere" / "link.xml");
}

TEST_F(GenerateActionTest, EveryUnreadableFolderIsNamedAndNothingIsWritten) {
    for (const char* file : {"a/1.dll", "a/locked/2.dll", "b/3.dll", "b/shut/4.dll", "c/5.dll"}) {
        ict_test::WriteText(dir_ / "product" / file, "abc");
    }
    const auto settings = Settings(R"(<ManifestGeneration productRoot="../product">
  <Directory path="%ProductRoot%"/>
</ManifestGeneration>)",
                                   dir_ / "m.xml");
    ict_test::SetPermissions(dir_ / "product" / "a" / "locked", fs::no_perms);
    ict_test::SetPermissions(dir_ / "product" / "b" / "shut", fs::no_perms);
    bool succeeded = true;
    bool binding = false;
    {
        ict_test::ObeyFilePermissions obey;
        binding = obey.Binding();
        if (binding) {
            succeeded = Run(settings);
        }
    }
    ict_test::SetPermissions(dir_ / "product" / "a" / "locked", fs::owner_all);
    ict_test::SetPermissions(dir_ / "product" / "b" / "shut", fs::owner_all);
    if (!binding) {
        GTEST_SKIP() << "file permissions do not bind this process";
    }
    EXPECT_FALSE(succeeded);
    EXPECT_FALSE(fs::exists(dir_ / "m.xml"));
    const std::string err = err_.str();
    for (const char* folder : {"a/locked", "b/shut"}) {
        std::string name = std::string("%ProductRoot%\\") + folder;
        name.replace(name.find('/'), 1, "\\");
        EXPECT_THAT(err, HasSubstr("Generation of directory " + name + " failed. Reason: " +
                                   "Can't enumerate " + (dir_ / "product" / folder).string() +
                                   ". Reason: Permission denied\n"));
    }
    EXPECT_THAT(err, HasSubstr("Generation of directory %ProductRoot% failed. Reason: "
                               "2 of its folders could not be listed\n"));
    // The files around them were all read.
    EXPECT_THAT(out_.str(), HasSubstr("\tFiles: 0 / 0 / 3\n"));
    EXPECT_THAT(out_.str(), HasSubstr("\tDirectories: 1 / 0 / 0\n"));
}

// Files are hashed on several threads, but what is written, traced and
// reported must be what one thread gives, in the same order: a clean tree
// gives the same manifest byte for byte, a tree with failures the same lines.
TEST_F(GenerateActionTest, ThreadCountChangesNothingButSpeed) {
    for (int index = 0; index < 40; ++index) {
        const std::string folder = index % 3 == 0 ? "bin" : index % 3 == 1 ? "bin/sub" : "lib";
        ict_test::WriteText(dir_ / "product" / folder / ("f" + std::to_string(index) + ".dll"),
                            std::string(static_cast<std::size_t>(index) * 997, char('a' + index)));
    }
    ict_test::WriteText(dir_ / "product" / "bin" / "%HOME%.dll", "refused name");
    const std::string clean = R"(<ManifestGeneration productRoot="../product">
  <Directory path="%ProductRoot%\bin" group="true"><Check type="Sha256"/><Check type="Gost2012"/></Directory>
  <Directory path="%ProductRoot%\lib"><Check type="Exists"/><Check type="Value"/></Directory>
</ManifestGeneration>)";
    // The second folder lists bin/sub again with other checks, and one file
    // can't be read: failures both before and while values are computed.
    const std::string failing = R"(<ManifestGeneration productRoot="../product">
  <Directory path="%ProductRoot%\bin" group="true"><Check type="Exists"/><Check type="Sha256"/></Directory>
  <Directory path="%ProductRoot%\bin\sub"><Check type="Value"/></Directory>
</ManifestGeneration>)";
    const fs::path locked = dir_ / "product" / "bin" / "f3.dll";

    struct Outcome {
        bool succeeded;
        std::string manifest;
        std::string out;
        std::string err;
        std::vector<std::string> messages;
    };
    // The time of generation ("2024-01-01T00:00:00Z") is the one thing that may differ.
    const auto timeless = [](std::string text) {
        const std::string shape = "dddd-dd-ddTdd:dd:ddZ";
        for (std::size_t at = 0; at + shape.size() <= text.size(); ++at) {
            bool matches = true;
            for (std::size_t index = 0; index < shape.size() && matches; ++index) {
                const char c = text[at + index];
                matches = shape[index] == 'd' ? c >= '0' && c <= '9' : c == shape[index];
            }
            if (matches) {
                text.replace(at, shape.size(), "TIME");
            }
        }
        return text;
    };
    const auto generate = [&](const std::string& config, unsigned threads, bool lock) {
        out_.str("");
        err_.str("");
        const std::size_t tracedBefore = Messages().size();
        fs::remove(dir_ / "m.xml");
        auto settings = Settings(config, dir_ / "m.xml");
        settings.threads = threads;
        ict_test::SetPermissions(locked, lock ? fs::no_perms : fs::owner_all);
        Outcome outcome{};
        {
            ict_test::ObeyFilePermissions obey;
            outcome.succeeded = Run(settings);
        }
        ict_test::SetPermissions(locked, fs::owner_all);
        if (fs::exists(dir_ / "m.xml")) {
            outcome.manifest = timeless(ict_test::ReadText(dir_ / "m.xml"));
        }
        outcome.out = out_.str();
        outcome.err = err_.str();
        const auto messages = Messages();
        for (std::size_t line = tracedBefore; line < messages.size(); ++line) {
            outcome.messages.push_back(timeless(messages[line]));
        }
        return outcome;
    };

    const Outcome one = generate(clean, 1, false);
    ASSERT_TRUE(one.succeeded) << one.err;
    EXPECT_THAT(one.manifest, HasSubstr("f39.dll"));
    EXPECT_THAT(one.messages,
                Contains("Checker Gost2012 added for %ProductRoot%\\bin\\sub\\f37.dll"));
    const Outcome many = generate(clean, 4, false);
    EXPECT_EQ(many.manifest, one.manifest);
    EXPECT_EQ(many.out, one.out);
    EXPECT_EQ(many.err, one.err);
    EXPECT_EQ(many.messages, one.messages);

    const Outcome oneFailing = generate(failing, 1, true);
    EXPECT_FALSE(oneFailing.succeeded);
    EXPECT_THAT(oneFailing.err, HasSubstr(fs::path("bin/sub/f1.dll").make_preferred().string() +
                                          " is already listed with other checks"));
    if (ict_test::ObeyFilePermissions().Binding()) {
        EXPECT_THAT(oneFailing.err,
                    HasSubstr("Generation of file %ProductRoot%\\bin\\f3.dll failed"));
    }
    const Outcome manyFailing = generate(failing, 3, true);
    EXPECT_FALSE(manyFailing.succeeded);
    EXPECT_EQ(manyFailing.out, oneFailing.out);
    EXPECT_EQ(manyFailing.err, oneFailing.err);
    EXPECT_EQ(manyFailing.messages, oneFailing.messages);
}

}  // namespace
}  // namespace integrity_check_tool::action
