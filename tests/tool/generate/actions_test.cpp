// Generate and normalize, and the atomic writing that leaves nothing half-written.
#include <functional>
#include <sstream>
#include <tuple>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <boost/filesystem/directory.hpp>
#include <boost/filesystem/operations.hpp>
#include <boost/regex.hpp>

#include "support/enum_printing.h"

#include "action/generate.h"
#include "action/normalize.h"
#include "common/console_output.h"
#include "common/exception.h"
#include "factory/factory.h"
#include "support/e2e.h"
#include "support/file_helpers.h"
#include "support/os_errors.h"
#include "support/temp_dir.h"
#include "support/thrown.h"
#include "support/trace_capture.h"
#include "utils/atomic_file.h"
#include "xml/file.h"

#ifndef _WIN32
#include <sys/stat.h>
#include <unistd.h>
#endif
#ifdef __linux__
#include <linux/capability.h>
#include <sys/syscall.h>
#endif

namespace integrity_check_tool::action {
namespace {

namespace fs = boost::filesystem;
using testing::Contains;
using testing::HasSubstr;
using testing::StartsWith;

// While it lives, file permissions bind this process even when it runs as
// root: the capabilities that override them leave the effective set, and
// come back from the permitted set afterwards. `Binding()` tells whether a
// folder of mode 000 is now closed to the process.
class ObeyFilePermissions {
public:
    ObeyFilePermissions() {
#ifdef __linux__
        if (syscall(SYS_capget, &header_, saved_) != 0) {
            return;
        }
        __user_cap_data_struct lowered[2] = {saved_[0], saved_[1]};
        lowered[0].effective &= ~((1u << CAP_DAC_OVERRIDE) | (1u << CAP_DAC_READ_SEARCH));
        lowered_ = syscall(SYS_capset, &header_, lowered) == 0;
#endif
    }
    ~ObeyFilePermissions() {
#ifdef __linux__
        if (lowered_) {
            syscall(SYS_capset, &header_, saved_);
        }
#endif
    }
    ObeyFilePermissions(const ObeyFilePermissions&) = delete;
    ObeyFilePermissions& operator=(const ObeyFilePermissions&) = delete;

    bool Binding() const {
#ifdef _WIN32
        // Windows keeps rights in access lists; the permission bits are only
        // the read-only attribute, which never closes a folder.
        return false;
#else
        return lowered_ || !ict_test::CanReadEverything();
#endif
    }

private:
#ifdef __linux__
    __user_cap_header_struct header_{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct saved_[2] = {};
#endif
    bool lowered_ = false;
};

// The time of generation is the one thing two runs may differ in.
std::string Timeless(const std::string& text) {
    return boost::regex_replace(text, boost::regex(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ)"), "TIME");
}

// A product tree in a temporary folder, a tracer whose lines can be read
// back and console streams in memory; the normalize action runs on a path.
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

    bool Run(const fs::path& manifest) {
        Normalize action(trace_.Tracer(), NormalizeSettings{manifest});
        EXPECT_EQ(action.GetName(), "Normalize");
        return action.Execute();
    }

    ManifestPtr Load(const fs::path& path) { return xml::File(nullptr).Load(path); }

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
        const std::size_t tracedBefore = trace_.Messages().size();
        ict_test::WriteText(dir_ / "m.xml", "old manifest");
        auto settings = Settings(config, dir_ / "m.xml");
        settings.threads = threads;
        for (const auto& path : locked) {
            ict_test::SetPermissions(path, lock ? fs::no_perms : fs::owner_all);
        }
        bool succeeded = false;
        {
            ObeyFilePermissions obey;
            succeeded = Run(settings);
        }
        for (const auto& path : locked) {
            ict_test::SetPermissions(path, fs::owner_all);
        }
        std::string outcome = std::string(succeeded ? "succeeded" : "failed") + "\nout:\n" +
                              out_.str() + "\nerr:\n" + err_.str() + "\nmanifest:\n" +
                              ict_test::ReadText(dir_ / "m.xml") + "\ntrace:\n";
        const auto messages = trace_.Messages();
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
    if (ObeyFilePermissions().Binding()) {
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

using NormalizeTest = GenerateActionTest;

TEST_F(NormalizeTest, GroupsAndPlaceholdersSurviveAndTheWrapperGoes) {
    const fs::path path = dir_ / "m.xml";
    ict_test::WriteText(path, R"(<Config><Manifest productName="Demo">
  <Files path="%Bin%" arch="X86"><File path="p.dll"><Check/></File></Files>
</Manifest></Config>)");
    const std::string normalized = R"(<?xml version="1.0" encoding="UTF-8" ?>
<Manifest productName="Demo">
    <Files path="%Bin%" arch="X86">
        <File path="p.dll">
            <Check type="Exists" />
        </File>
    </Files>
</Manifest>
)";
    ASSERT_TRUE(Run(path));
    EXPECT_EQ(ict_test::ReadText(path), normalized);
    EXPECT_THAT(trace_.Messages(), Contains("Manifest " + path.string() + " normalized"));
    // The current dialect comes back unchanged.
    ASSERT_TRUE(Run(path));
    EXPECT_EQ(ict_test::ReadText(path), normalized);
}

// What normalize can't read it leaves byte for byte, and says why. A FIFO
// must not be read: it waits for a writer.
TEST_F(NormalizeTest, BadInputIsLeftAsItWasAndTheReasonIsGiven) {
    const fs::path path = dir_ / "m.xml";
    const auto failed = [](const fs::path& manifest) {
        return "Normalization of manifest " + manifest.string() + " failed. Reason: ";
    };
    const std::string unclosed =
        "<Manifest>\r\n  <File path=\"a\"><Check type=\"sha256\"/></File>\r\n";
    const std::pair<std::string, std::string> contents[] = {
        // The unclosed manifest is placed: which file, which row.
        {unclosed, "Manifest file " + path.string() + " is invalid at row 3"},
        {unclosed + "</Manifest>", failed(path) + "Invalid name: sha256"}};
    for (const auto& [content, line] : contents) {
        ict_test::WriteText(path, content);
        EXPECT_FALSE(Run(path)) << content;
        EXPECT_EQ(ict_test::ReadText(path), content);
        EXPECT_THAT(trace_.Messages(), Contains(HasSubstr(line)));
    }
    const std::pair<fs::path, std::string> unreadable[] = {
        {dir_.Path(), "it is a directory, not a regular file"},
        {dir_ / "none.xml", ict_test::os_error::Text(ict_test::os_error::kNoEntry)},
        {ict_test::MakeSpecialFile(dir_ / "pipe.xml"), "it is not a regular file"}};
    for (const auto& [manifest, reason] : unreadable) {
        EXPECT_FALSE(Run(manifest)) << manifest;
        EXPECT_THAT(trace_.Messages(), Contains(failed(manifest) + "Can't open manifest file " +
                                                manifest.string() + ". Reason: " + reason));
    }
    EXPECT_FALSE(fs::exists(dir_ / "none.xml"));
}

// Another writer that saves the manifest while it is being normalized keeps
// its version: the file is replaced only if it is still the one that was read.
TEST_F(NormalizeTest, AManifestChangedMeanwhileIsLeftToItsNewWriter) {
    const fs::path path = dir_ / "m.xml";
    // The reader's warning about the unknown attribute comes after the file
    // was read and before it is replaced: the other writer saves then.
    class MeddlingChannel : public ruk::MemoryTraceChannel {
    public:
        explicit MeddlingChannel(fs::path path) : path_(std::move(path)) {}
        void WriteLine(const std::string& line) override {
            MemoryTraceChannel::WriteLine(line);
            if (line.find("Unknown attribute") != std::string::npos) {
                ict_test::WriteText(path_, "<Manifest productName=\"Theirs\"/>");
            }
        }

    private:
        fs::path path_;
    };
    ict_test::WriteText(path, R"(<Manifest productName="Ours" extra="1"/>)");
    const ruk::intrusive_ptr<MeddlingChannel> channel(new MeddlingChannel(path));
    Normalize action(std::make_shared<Tracer>(800, channel), NormalizeSettings{path});

    EXPECT_FALSE(action.Execute());
    EXPECT_EQ(ict_test::ReadText(path), "<Manifest productName=\"Theirs\"/>");
    EXPECT_THAT(channel->Lines(), Contains(HasSubstr("Normalization of manifest " + path.string() +
                                                     " failed. Reason: ")));
}

void WriteString(ruk::IIO& io, const std::string& text) {
    std::size_t written = 0;
    ASSERT_EQ(io.Write(text.data(), text.size(), &written), ruk::result::Success);
}

std::size_t CountEntries(const fs::path& dir) {
    return static_cast<std::size_t>(
        std::distance(fs::directory_iterator(dir), fs::directory_iterator()));
}

TEST(AtomicFileTest, CreatesAndReplacesThroughLinksKeepingOwnerGroupAndMode) {
    ict_test::TempDir dir;
    const fs::path target = dir / "m.xml";
    WriteFileAtomically(target, [](ruk::IIO& io) { WriteString(io, "first"); });
    EXPECT_EQ(ict_test::ReadText(target), "first");
    WriteFileAtomically(target, [](ruk::IIO& io) { WriteString(io, "second, longer"); });
    EXPECT_EQ(ict_test::ReadText(target), "second, longer");
    EXPECT_EQ(CountEntries(dir.Path()), 1u) << "a temporary file was left behind";
    // A symbolic link is written through.
    if (ict_test::SymbolicLinksWork(dir.Path())) {
        fs::create_symlink(target, dir / "link.xml");
        WriteFileAtomically(dir / "link.xml", [](ruk::IIO& io) { WriteString(io, "through"); });
        EXPECT_TRUE(fs::is_symlink(dir / "link.xml"));
        EXPECT_EQ(ict_test::ReadText(target), "through");
    }
#ifdef _WIN32
    GTEST_SKIP() << "Windows keeps rights in access lists, which permission bits do not show";
#else
    // Only root can give a file to another user.
    const bool asRoot = ict_test::CanReadEverything();
    ASSERT_TRUE(!asRoot || ::chown(target.c_str(), 65534, 65534) == 0);
    ASSERT_EQ(::chmod(target.c_str(), 0640), 0);
    WriteFileAtomically(target, [](ruk::IIO& io) { WriteString(io, "third"); });
    EXPECT_EQ(ict_test::ReadText(target), "third");
    struct stat info {};
    ASSERT_EQ(::stat(target.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0640u);
    if (asRoot) {
        EXPECT_EQ(info.st_uid, 65534u);
        EXPECT_EQ(info.st_gid, 65534u);
    }
#endif
}

TEST(AtomicFileTest, FailureLeavesTheTargetAsItWasAndNoTemporary) {
    ict_test::TempDir dir;
    const fs::path target = dir / "m.xml";
    ict_test::WriteText(target, "original\r\nbytes");
    EXPECT_EQ(ict_test::ThrownText<Exception>([&] {
                  WriteFileAtomically(target, [](ruk::IIO& io) {
                      WriteString(io, "half");
                      throw std::runtime_error("disk full");
                  });
              }),
              "Can't write file " + target.string() + ". Reason: disk full");
    EXPECT_EQ(ict_test::ReadText(target), "original\r\nbytes");
    // Renaming a file over a non-empty directory fails for every user, root included.
    const fs::path folder = dir / "folder.xml";
    ict_test::WriteText(folder / "inside.txt", "kept");
    EXPECT_THROW(WriteFileAtomically(folder, [](ruk::IIO& io) { WriteString(io, "new"); }),
                 Exception);
    EXPECT_EQ(ict_test::ReadText(folder / "inside.txt"), "kept");
    EXPECT_EQ(CountEntries(dir.Path()), 2u) << "a temporary file was left behind";
    // A folder that does not exist can't take the temporary file.
    EXPECT_THAT(ict_test::ThrownText<Exception>(
                    [&] { WriteFileAtomically(dir / "none" / "m.xml", [](ruk::IIO&) {}); }),
                HasSubstr("Can't write file " + (dir / "none" / "m.xml").string()));
}

TEST(AtomicFileTest, LongestNameGetsAShortTemporaryBesideIt) {
    ict_test::TempDir dir;
    const fs::path target = dir / std::string(250, 'n');
    for (const char* content : {"first", "second"}) {
        WriteFileAtomically(target, [&](ruk::IIO& io) {
            // While it is written, the temporary lies in the target's folder.
            for (const auto& entry : fs::directory_iterator(dir.Path())) {
                if (entry.path() != target) {
                    EXPECT_LE(entry.path().filename().string().size(), 32u);
                }
            }
            EXPECT_EQ(CountEntries(dir.Path()), fs::exists(target) ? 2u : 1u);
            WriteString(io, content);
        });
        EXPECT_EQ(ict_test::ReadText(target), content);
    }
    EXPECT_EQ(CountEntries(dir.Path()), 1u);
}

TEST(AtomicFileTest, TargetChangedOrReplacedMeanwhileIsLeftToItsNewOwner) {
    using Interference = std::function<void(const fs::path&)>;
    const auto replace = [](const fs::path& target) {
        ict_test::WriteText(target.parent_path() / "other", "other");
        fs::rename(target.parent_path() / "other", target);
    };
    // Who interferes, how, and what the target holds afterwards ("" for nothing).
    const std::tuple<const char*, Interference, std::string> cases[] = {
        {"nobody", [](const fs::path&) {}, "mine"},
        {"written in place", [](const fs::path& t) { ict_test::WriteText(t, "theirs"); }, "theirs"},
        {"replaced", replace, "other"},
        {"removed", [](const fs::path& t) { fs::remove(t); }, ""},
    };
    for (const auto& test : cases) {
        const Interference& interfere = std::get<1>(test);
        const std::string& left = std::get<2>(test);
        SCOPED_TRACE(std::get<0>(test));
        ict_test::TempDir dir;
        const fs::path target = dir / "m.xml";
        ict_test::WriteText(target, "original");
        boost::optional<platform::FileStamp> stamp;
        ASSERT_EQ(platform::GetFileStamp(target, &stamp), ruk::result::Success);
        ASSERT_TRUE(stamp);
        const std::string error = ict_test::ThrownText<Exception>([&] {
            const auto write = [&](ruk::IIO& io) {
                interfere(target);
                WriteString(io, "mine");
            };
            WriteFileAtomically(target, write, &*stamp);
        });
        if (left == "mine") {
            EXPECT_EQ(error, "(nothing thrown)");
        } else {
            EXPECT_THAT(error, HasSubstr("changed or replaced by someone else"));
        }
        EXPECT_EQ(fs::exists(target) ? ict_test::ReadText(target) : "", left);
        EXPECT_EQ(CountEntries(dir.Path()), left.empty() ? 0u : 1u);
    }
}

}  // namespace
}  // namespace integrity_check_tool::action
