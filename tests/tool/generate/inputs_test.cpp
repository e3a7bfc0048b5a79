// The manifest tool's command line and configuration, and what it lists.
#include <sstream>
#include <tuple>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <boost/filesystem/operations.hpp>

#include "support/enum_printing.h"

#include "common/exception.h"
#include "generate/entry_name.h"
#include "generate/generation_config.h"
#include "generate/glob_pattern.h"
#include "generate/nt_version.h"
#include "generate/parallel_jobs.h"
#include "generate/progress_counter.h"
#include "generate/tree_enumerator.h"
#include "manifest_arguments.h"
#include "support/e2e.h"
#include "support/thrown.h"

namespace integrity_check_tool::generate {
namespace {

namespace fs = boost::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;
using testing::StartsWith;
using testing::UnorderedElementsAre;

std::shared_ptr<ApplicationConfiguration> Build(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "integrity_manifest");
    ManifestToolArguments parsed;
    parsed.Parse(arguments);
    return parsed.BuildConfiguration();
}

std::string ArgumentError(std::vector<std::string> arguments) {
    return ict_test::ThrownText<Exception>([&] { Build(std::move(arguments)); });
}

TEST(ManifestArgumentsTest, GenerateFillsOnlyItsSectionWithAbsolutePaths) {
    const auto configuration = Build({"generate", "--config", "c.xml", "--output", "out/../m.xml"});
    ASSERT_TRUE(configuration->generate);
    EXPECT_FALSE(configuration->normalize || configuration->singleFileCheck ||
                 configuration->verify || configuration->displayVersion || configuration->logFile);
    EXPECT_EQ(configuration->logLevel, 600u);
    const auto& settings = *configuration->generate;
    EXPECT_EQ(settings.configPath, fs::current_path() / "c.xml");
    EXPECT_EQ(settings.manifestPath, fs::current_path() / "m.xml");
    EXPECT_FALSE(settings.stampArch || settings.stampOsEdition || !settings.version.empty());
    EXPECT_EQ(settings.threads, DefaultThreadCount());

    const auto stamped =
        Build({"generate", "--config", "/c.xml", "--output", "/m.xml", "--arch", "ARM64",
               "--edition", "Server", "--version", "6.1", "--trace", "log.txt", "--threads", "3"});
    EXPECT_EQ(stamped->generate->threads, 3u);
    // The largest thread count is still one.
    EXPECT_EQ(Build({"generate", "--config", "c", "--output", "m", "--threads", "256"})
                  ->generate->threads,
              256u);
    EXPECT_TRUE(stamped->generate->stampArch && stamped->generate->stampOsEdition);
    EXPECT_EQ(stamped->generate->arch, Arch::ARM64);
    EXPECT_EQ(stamped->generate->osEdition, OsEdition::Server);
    EXPECT_EQ(stamped->generate->version, "6.1");
    EXPECT_EQ(stamped->logFile, fs::path("log.txt"));
    EXPECT_EQ(stamped->logLevel, 800u);
}

TEST(ManifestArgumentsTest, NormalizeAndHashTakeTheirOperandAndHelpListsThem) {
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
    // Help needs no command and lists every command.
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

TEST(ManifestArgumentsTest, MisuseIsExplainedWithTheHelpText) {
    const std::pair<std::vector<std::string>, std::string> cases[] = {
        {{}, "A command is needed: generate, normalize or hash"},
        {{"sign", "x"}, "Unknown command sign: use generate, normalize or hash"},
        {{"generate", "--output", "m.xml"}, "generate needs the option --config"},
        {{"generate", "--config", "c", "--output", "m", "extra"},
         "generate takes no operand, but extra was given"},
        {{"normalize"}, "normalize needs a MANIFEST to work on"},
        {{"normalize", "m.xml", "--arch", "X86"}, "Option --arch does not apply to normalize"},
        {{"generate", "--config", "c", "--output", "m", "--threads", "0"},
         "Invalid thread count 0: use a number from 1 to 256"},
        {{"generate", "--config", "c", "--output", "m", "--threads", "257"},
         "Invalid thread count 257: use a number from 1 to 256"},
        {{"generate", "--config", "c", "--output", "m", "--threads", "two"},
         "Invalid thread count two: use a number from 1 to 256"},
        {{"hash", "a.dll"}, "hash needs the option --type"},
        {{"hash", "--type", "Exists", "a.dll"},
         "Invalid hash type Exists: use Sha256, Gost2012 or Value"},
        {{"--bogus"}, "unrecognised option '--bogus'"},
    };
    for (const auto& [arguments, message] : cases) {
        const std::string error = ArgumentError(arguments);
        EXPECT_THAT(error, StartsWith(message + "\n\n")) << message;
        EXPECT_THAT(error, HasSubstr("Usage:\n  integrity_manifest generate --config FILE"));
    }
}

TEST(ManifestArgumentsTest, BadValuesNameThemselves) {
    EXPECT_EQ(ArgumentError({"generate", "--config", "c", "--output", "m", "--arch", "x64"}),
              "Invalid name: x64");
    EXPECT_EQ(ArgumentError({"generate", "--config", "c", "--output", "m", "--edition", "Home"}),
              "Invalid name: Home");
    EXPECT_EQ(ArgumentError({"generate", "--config", "c", "--output", "m", "--version", "ten"}),
              "Invalid version ten: expected major.minor (10.0) or a number (1000)");
    EXPECT_EQ(ArgumentError({"hash", "--type", "sha256", "a"}), "Invalid name: sha256");
}

const boost::filesystem::path kOrigin = "/configs/product/generation.xml";

std::string ErrorOf(const std::string& text) {
    return ict_test::ThrownText<Exception>([&] { ParseGenerationConfig(text, kOrigin); });
}

TEST(GenerationConfigTest, ReadsEveryPartOfTheVocabulary) {
    const auto config = ParseGenerationConfig(R"(<?xml version="1.0"?>
<ManifestGeneration productName="Demo" productVersion="1.0.0.1" productRoot="../tree">
  <Check type="Sha256"/>
  <Check type="Gost2012"/>
  <Environment key="Bin" value="%ProductRoot%\bin" os="Windows"/>
  <Directory path="%Bin%" group="true" bitness="64" minVersionNt="0x0A00">
    <Include pattern="*.dll"/>
    <Include pattern="*.exe"/>
    <Exclude pattern="tmp/"/>
    <Check type="Value"/>
  </Directory>
  <Directory path="%ProductRoot%\doc"/>
  <File path="%ProductRoot%\debug.log" defined="strict"><Check type="NotExists"/></File>
  <Registry path="HKEY_LOCAL_MACHINE\SOFTWARE\Demo" arch="X86">
    <Value name="Version" type="REG_SZ"/>
    <Value><Check type="Sha256"/></Value>
  </Registry>
</ManifestGeneration>)",
                                              kOrigin);
    // Names, the environment, a group and its bitness reach the manifest in
    // the generate action's test; here what it does not show.
    ASSERT_TRUE(config.productRoot);
    EXPECT_EQ(*config.productRoot, boost::filesystem::path("/configs/tree"));
    EXPECT_EQ(config.environments.at(0).filter.os, Os::Windows);
    ASSERT_EQ(config.directories.size(), 2u);
    const auto& bin = config.directories[0];
    EXPECT_EQ(bin.filter.minVersionNt, 0x0A00u);
    ASSERT_EQ(bin.includes.size(), 2u);
    EXPECT_EQ(bin.includes[1].GetText(), "*.exe");
    ASSERT_EQ(bin.excludes.size(), 1u);
    EXPECT_TRUE(bin.excludes[0].Matches("tmp/a.dll"));
    EXPECT_THAT(bin.checks, ElementsAre(CheckType::Value));
    // Without checks of its own a folder takes the document's.
    EXPECT_FALSE(config.directories[1].group);
    EXPECT_THAT(config.directories[1].checks, ElementsAre(CheckType::Sha256, CheckType::Gost2012));

    EXPECT_EQ(config.files.at(0).filter.defined, std::string("strict"));
    EXPECT_THAT(config.files[0].checks, ElementsAre(CheckType::NotExists));
    const auto& registry = config.registries.at(0);
    EXPECT_EQ(registry.filter.arch, Arch::X86);
    ASSERT_EQ(registry.values.size(), 2u);
    EXPECT_EQ(registry.values[0].type, RegistryType::Sz);
    EXPECT_THAT(registry.values[0].checks, ElementsAre(CheckType::Value));
    EXPECT_EQ(registry.values[1].name, "");
    EXPECT_EQ(registry.values[1].type, RegistryType::Binary);
    EXPECT_THAT(registry.values[1].checks, ElementsAre(CheckType::Sha256));
}

TEST(GenerationConfigTest, MinimalDocumentDefaults) {
    const auto config = ParseGenerationConfig(
        "<ManifestGeneration><Directory path='x'/><File path='y'>"
        "<Check type='Exists'/><Check type='Exists'/></File></ManifestGeneration>",
        kOrigin);
    EXPECT_FALSE(config.productRoot);
    EXPECT_TRUE(config.productName.empty());
    EXPECT_THAT(config.directories.at(0).checks, ElementsAre(CheckType::Sha256));
    EXPECT_TRUE(config.directories.at(0).includes.empty());
    // A type listed twice counts once.
    EXPECT_THAT(config.files.at(0).checks, ElementsAre(CheckType::Exists));
}

std::string Document(const std::string& body) {
    return "<ManifestGeneration>" + body + "</ManifestGeneration>";
}

// The configuration is XML from outside too: it goes through the manifests'
// own text check (whose every rule the XML tests hold), and its description
// and row come along.
TEST(GenerationConfigTest, ErrorsNameFileRowAndCause) {
    std::string deep;
    for (int level = 0; level < 50000; ++level) {
        deep += "<a>";
    }
    const std::pair<std::string, std::string> cases[] = {
        {"<Manifest/>", "1: root element ManifestGeneration is absent"},
        {Document("\n<Folder path='x'/>"), "2: unknown element Folder in ManifestGeneration"},
        {Document("\n\n<Directory path='x' grup='true'/>"),
         "3: unknown attribute grup of Directory"},
        {Document("<File/>"), "1: element File needs the attribute path"},
        {Document("<Environment key='A' value=''/>"),
         "1: element Environment needs the attribute value"},
        {Document("<Directory path='x' group='yes'/>"),
         "1: attribute group must be true or false, not yes"},
        {Document("<Check type='sha256'/>"), "1: Invalid name: sha256"},
        {Document("<Directory path='x'><Include pattern='[a'/></Directory>"),
         "1: Invalid pattern [a: '[' without its closing ']'"},
        {Document("<Directory path='%Bin%'><Check type='NotExists'/></Directory>"),
         "1: check type NotExists can't be used for the files of directory %Bin%"},
        {"<ManifestGeneration>" + deep, "1: XML nesting deeper than 256 levels"},
        {Document("\n<File path='a&b'/>"), "2: not well-formed (invalid token)"},
    };
    for (const auto& [text, error] : cases) {
        EXPECT_EQ(ErrorOf(text),
                  "Invalid generation configuration /configs/product/generation.xml, row " + error)
            << text.substr(0, 100);
    }
    // How a file is read, productRoot taken from where it lies, the action tests show.
    ict_test::TempDir dir;
    EXPECT_THAT(ict_test::ThrownText<Exception>([&] { ReadGenerationConfig(dir / "missing.xml"); }),
                HasSubstr("Can't read generation configuration " + (dir / "missing.xml").string() +
                          ". Reason: "));
    EXPECT_THROW(ReadGenerationConfig(dir.Path()), Exception);
}

TEST(NtVersionTest, DottedDecimalAndHexadecimalForms) {
    EXPECT_EQ(ParseNtVersion("10.0"), 1000u);
    EXPECT_EQ(ParseNtVersion("6.1"), 601u);
    EXPECT_EQ(ParseNtVersion("1000"), 1000u);
    EXPECT_EQ(ParseNtVersion("0x3E8"), 1000u);
    // The text of the refusal is the manifest tool's arguments test.
    for (const char* bad : {"", "ten", "10.", "10.0.1", " 10.0", "-1", "0x"}) {
        EXPECT_THROW(ParseNtVersion(bad), Exception) << bad;
    }
}

// Without a slash only the name is looked at, with one the whole relative
// path; a single star or '?' never crosses a separator, a double star crosses
// segments and may be empty; a trailing slash names everything below a folder.
TEST(GlobPatternTest, MatchesAsTheTableSays) {
    using Paths = std::vector<const char*>;
    const std::string as(50, 'a');
    const std::tuple<const char*, Paths, Paths> cases[] = {
        {"*.dll", {"a.dll", "bin/x64/a.dll"}, {"a.dll.bak", "a.dll/readme.txt", "A.DLL"}},
        {"*.DLL", {"A.DLL"}, {"a.dll"}},
        {"readme.txt", {"docs/readme.txt"}, {"docs/readme.txt2"}},
        {"bin/*.dll", {"bin/a.dll"}, {"lib/bin/a.dll", "bin/x64/a.dll"}},
        {"/bin/a.dll", {"bin/a.dll"}, {}},
        {"bin\\x64\\*.dll", {"bin/x64/a.dll"}, {}},
        {"**/*.dll", {"a.dll", "bin/x64/a.dll"}, {}},
        {"bin/**/a.dll", {"bin/a.dll", "bin/x/y/z/a.dll"}, {"bin/xa.dll"}},
        {"logs/**", {"logs/a/b.txt"}, {"logs2/a.txt"}},
        {"bin/a**z", {"bin/a/b/z"}, {}},
        {"a**z", {}, {"a/b/z"}},
        {"tmp/", {"tmp/x/y"}, {"tmp"}},
        {"file?.txt", {"file1.txt"}, {"file.txt"}},
        {"a?b", {}, {"a/b"}},
        {"v[0-9].dll", {"v7.dll"}, {"vx.dll"}},
        {"v[!0-9].dll", {"vx.dll"}, {}},
        {"v[^0-9].dll", {}, {"v1.dll"}},
        {"[]x].txt", {"].txt"}, {}},
        {"[*].txt", {"*.txt"}, {"a.txt"}},
        // Backtracking matchers take exponential time on these.
        {"*a*a*a*a*a*a*a*a*a*a*a*a*b", {}, {as.c_str()}},
        {"**a**a**a**a**a**a**a**a**b", {}, {as.c_str()}},
    };
    for (const auto& [pattern, matching, other] : cases) {
        for (const bool matches : {true, false}) {
            for (const char* path : matches ? matching : other) {
                EXPECT_EQ(GlobPattern(pattern).Matches(path), matches) << pattern << " on " << path;
            }
        }
    }
    const std::string longPath(2000, 'a');
    EXPECT_FALSE(GlobPattern("*a*a*a*a*a*a*a*a*a*a*a*a*b").Matches(longPath));
    EXPECT_FALSE(GlobPattern("**a**a**a**a**a**a**a**a**b").Matches(longPath));

    const std::vector<GlobPattern> patterns{GlobPattern("*.exe"), GlobPattern("bin/*.dll")};
    EXPECT_TRUE(MatchesAny(patterns, "tools/x.exe"));
    EXPECT_TRUE(MatchesAny(patterns, "bin/a.dll"));
    EXPECT_FALSE(MatchesAny(patterns, "lib/a.dll"));
    EXPECT_FALSE(MatchesAny({}, "a"));
    // The text of a bad pattern is the generation configuration's test.
    for (const char* bad : {"", "/", "bin/[a-z"}) {
        EXPECT_THROW(GlobPattern{bad}, Exception) << bad;
    }
}

#ifndef _WIN32
// File names are bytes here; Windows gives UTF-16 units instead.
TEST(EntryNameTest, OnlyNamesAManifestCanCarryPassAndOthersAreShownEscaped) {
    // A name, how it is shown, and a word of why it is refused ("" if it is not).
    const std::tuple<std::string, std::string, std::string> cases[] = {
        {"bin/a.dll", "bin/a.dll", ""},
        {"a&b<c>\"d'.txt", "a&b<c>\"d'.txt", ""},
        {"new\nline\ttab\rret", "new\\x0Aline\\x09tab\\x0Dret", ""},
        {"\xD0\xB6\xE2\x82\xAC\xF0\x9F\x98\x80", "\xD0\xB6\xE2\x82\xAC\xF0\x9F\x98\x80", ""},
        {"del\x7F", "del\\x7F", ""},
        {"end\xD6", "end\\xD6", "UTF-8"},
        {"over\xC0\xAF", "over\\xC0\\xAF", "UTF-8"},                  // overlong '/'
        {"half\xE2\x82", "half\\xE2\\x82", "UTF-8"},                  // cut short
        {"sur\xED\xA0\x80", "sur\\xED\\xA0\\x80", "UTF-8"},           // a surrogate
        {"big\xF4\x90\x80\x80", "big\\xF4\\x90\\x80\\x80", "UTF-8"},  // above U+10FFFF
        {"bell\x07", "bell\\x07", "control character"},
        {"odd\\name.dll", "odd\\\\name.dll", "backslash"},
        {"not\xEF\xBF\xBF", "not\xEF\xBF\xBF", "control character"},  // U+FFFF
    };
    for (const auto& [text, shown, problem] : cases) {
        const EntryName name = DescribeEntryName(text);
        EXPECT_EQ(name.shown, shown) << text;
        if (problem.empty()) {
            EXPECT_TRUE(name.problem == nullptr && name.text == text) << text;
        } else {
            EXPECT_THAT(std::string(name.problem ? name.problem : ""), HasSubstr(problem)) << text;
        }
    }
    EXPECT_EQ(ShowName("a\nb\\c"), "a\\x0Ab\\\\c");
}
#endif

TEST(EntryNameTest, PercentSignsThatWouldFormAPlaceholderAreFound) {
    const std::tuple<const char*, const char*, bool> cases[] = {
        {"%ProductRoot%", "%HOME%.txt", true},
        {"%ProductRoot%", "sub\\%HOME%\\a.txt", true},
        {"%ProductRoot%", "a%\\b%.txt", true},  // pairs across folders
        {"C:\\100%", "x%y.txt", true},          // pairs with the folder's own '%'
        {"%ProductRoot%", "100%.txt", false},
        {"%ProductRoot%", "a%%b", false},  // "%%" holds no key
        {"%ProductRoot%\\50%", "plain.txt", false},
        {"%Bin%", "a.dll", false},
    };
    for (const auto& [folder, name, placeholder] : cases) {
        EXPECT_EQ(NameMakesPlaceholder(folder, name), placeholder) << folder << " + " << name;
    }
}

std::vector<GlobPattern> Patterns(std::initializer_list<const char*> texts) {
    std::vector<GlobPattern> patterns;
    for (const char* text : texts) {
        patterns.emplace_back(text);
    }
    return patterns;
}

class TreeEnumeratorTest : public testing::Test {
protected:
    void SetUp() override {
        for (const char* file : {"app.exe", "bin/a.dll", "bin/a.pdb", "bin/x64/b.dll",
                                 "logs/today.log", "logs/old/a.dll", "readme.txt"}) {
            ict_test::WriteText(dir_ / file, file);
        }
    }

    std::vector<std::string> List(const TreeEnumerator& enumerator, const fs::path& root = {}) {
        std::vector<std::string> paths;
        const fs::path start = root.empty() ? dir_.Path() : root;
        const Enumeration listing = enumerator.Enumerate(
            start,
            [this](const auto& path, const auto& reason) { skipped_.emplace_back(path, reason); });
        for (const auto& file : listing.files) {
            EXPECT_EQ(file.fullPath, start / file.relativePath);
            paths.push_back(file.relativePath);
        }
        EXPECT_TRUE(listing.failures.empty());
        return paths;
    }

    ict_test::TempDir dir_;
    std::vector<std::pair<std::string, std::string>> skipped_;
};

TEST_F(TreeEnumeratorTest, IncludesAdmitExcludesWinAndPruneAndAFileIsNoRoot) {
    EXPECT_THAT(List(TreeEnumerator(Patterns({"*.dll", "*.exe"}), Patterns({"logs", "x64/"}))),
                ElementsAre("app.exe", "bin/a.dll", "bin/x64/b.dll"));
    EXPECT_THAT(List(TreeEnumerator(Patterns({"bin/**"}), Patterns({"*.pdb", "bin/x64/**"}))),
                ElementsAre("bin/a.dll"));
    // A missing root is the generate action's test.
    const auto ignore = [](const std::string&, const std::string&) {};
    EXPECT_THAT(ict_test::ThrownText<Exception>(
                    [&] { TreeEnumerator({}, {}).Enumerate(dir_ / "readme.txt", ignore); }),
                HasSubstr("it is not a directory"));
}

TEST_F(TreeEnumeratorTest, IgnoredFileSpecialEntriesAndNamesNoManifestCanHoldAreLeftOut) {
    TreeEnumerator enumerator(Patterns({"bin/**"}), {});
    enumerator.Ignore(dir_ / "bin" / ".." / "bin" / "a.pdb");
    EXPECT_THAT(List(enumerator), ElementsAre("bin/a.dll", "bin/x64/b.dll"));
#ifdef _WIN32
    GTEST_SKIP() << "a Windows folder holds no FIFOs, its names are UTF-16 without backslash or "
                    "control character, and symbolic links need rights Wine lacks";
#endif
    ict_test::MakeFifo(dir_ / "bin" / "pipe.dll");
    fs::create_directory_symlink(dir_ / "logs", dir_ / "bin" / "linked");
    fs::create_symlink(dir_ / "readme.txt", dir_ / "bin" / "readme.dll");
    fs::create_symlink(dir_ / "gone", dir_ / "bin" / "dangling.dll");
    fs::create_symlink("self", dir_ / "bin" / "self");
    for (const char* name :
         {"odd\\name.dll", "bell\x07.dll", "bad\xFF/inner.dll", "new\nl&<>\"'"}) {
        ict_test::WriteText(dir_ / "bin" / name, "x");
    }
    // The FIFO must never be opened: the run would wait for a writer forever.
    EXPECT_THAT(List(enumerator),
                ElementsAre("bin/a.dll", "bin/new\nl&<>\"'", "bin/readme.dll", "bin/x64/b.dll"));
    // A folder with such a name is reported once, not entered.
    EXPECT_THAT(skipped_, UnorderedElementsAre(
                              Pair("bin/pipe.dll", "not a regular file"),
                              Pair("bin/linked", "a symbolic link to a directory is not followed"),
                              Pair("bin/dangling.dll", "a symbolic link to nothing"),
                              Pair("bin/self", "a symbolic link loop"),
                              Pair("bin/odd\\\\name.dll", HasSubstr("backslash")),
                              Pair("bin/bell\\x07.dll", HasSubstr("control character")),
                              Pair("bin/bad\\xFF", HasSubstr("not valid UTF-8"))));
}

TEST_F(TreeEnumeratorTest, IgnoredFileIsFoundThroughLinksToItAndToItsFolder) {
    if (!ict_test::SymbolicLinksWork(dir_.Path())) {
        GTEST_SKIP() << "this system does not let the test make symbolic links";
    }
    const fs::path linkedRoot =
        dir_.Path().parent_path() / (dir_.Path().filename().string() + "-link");
    fs::create_directory_symlink(dir_.Path(), linkedRoot);
    // The manifest is readme.txt; it is reached by another way each time.
    const std::tuple<const char*, fs::path, fs::path> cases[] = {
        {"root through a link", dir_ / "readme.txt", linkedRoot},
        {"manifest through a link", linkedRoot / "readme.txt", dir_.Path()},
        {"manifest by its own link", dir_ / "bin" / "link.txt", dir_.Path()},
    };
    fs::create_symlink(dir_ / "readme.txt", dir_ / "bin" / "link.txt");
    for (const auto& [what, ignored, root] : cases) {
        TreeEnumerator enumerator({}, Patterns({"logs"}));
        enumerator.Ignore(ignored);
        EXPECT_THAT(List(enumerator, root),
                    ElementsAre("app.exe", "bin/a.dll", "bin/a.pdb", "bin/x64/b.dll"))
            << what;
    }
    fs::remove(linkedRoot);
}

TEST(ProgressCounterTest, DrawsEveryNthStepOnlyWhenEnabled) {
    std::ostringstream shown;
    {
        ProgressCounter progress(shown, true, 2);
        progress.Step();
        EXPECT_EQ(shown.str(), "");
        progress.Step();
        progress.Step();
        progress.Step();
        EXPECT_EQ(shown.str(), "\rGenerating: 2 files\rGenerating: 4 files");
        EXPECT_EQ(progress.GetCount(), 4u);
    }
    // Leaving scope erases the line.
    EXPECT_EQ(shown.str(),
              "\rGenerating: 2 files\rGenerating: 4 files\r" + std::string(19, ' ') + "\r");

    std::ostringstream hidden;
    {
        ProgressCounter progress(hidden, false, 1);
        progress.Step();
        progress.Clear();
    }
    EXPECT_EQ(hidden.str(), "");
}

}  // namespace
}  // namespace integrity_check_tool::generate
