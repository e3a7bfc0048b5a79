// What the generator lists: the patterns that pick files, the names a
// manifest can carry and the walk through a tree.
#include <tuple>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <boost/filesystem/operations.hpp>

#include "common/exception.h"
#include "generate/entry_name.h"
#include "generate/glob_pattern.h"
#include "generate/progress_counter.h"
#include "generate/tree_enumerator.h"
#include "support/e2e.h"
#include "support/thrown.h"

namespace integrity_check_tool::generate {
namespace {

namespace fs = boost::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;
using testing::UnorderedElementsAre;

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
}

TEST(GlobPatternTest, InvalidPatternsNameThemselves) {
    EXPECT_EQ(ict_test::ThrownText<Exception>([] { GlobPattern("bin/[a-z"); }),
              "Invalid pattern bin/[a-z: '[' without its closing ']'");
    EXPECT_THROW(GlobPattern(""), Exception);
    EXPECT_THROW(GlobPattern("/"), Exception);
}

#ifndef _WIN32
// File names are bytes here; Windows gives UTF-16 units instead.
TEST(EntryNameTest, OnlyNamesAManifestCanCarryPassAndOthersAreShownEscaped) {
    struct Case {
        std::string name;
        std::string shown;
        const char* problem;  // a word of the reason, or null
    };
    const std::vector<Case> cases = {
        {"bin/a.dll", "bin/a.dll", nullptr},
        {"a&b<c>\"d'.txt", "a&b<c>\"d'.txt", nullptr},
        {"new\nline\ttab\rret", "new\\x0Aline\\x09tab\\x0Dret", nullptr},
        {"\xD0\xB6\xE2\x82\xAC\xF0\x9F\x98\x80", "\xD0\xB6\xE2\x82\xAC\xF0\x9F\x98\x80", nullptr},
        {"del\x7F", "del\\x7F", nullptr},
        {"end\xD6", "end\\xD6", "UTF-8"},
        {"over\xC0\xAF", "over\\xC0\\xAF", "UTF-8"},                  // overlong '/'
        {"half\xE2\x82", "half\\xE2\\x82", "UTF-8"},                  // cut short
        {"sur\xED\xA0\x80", "sur\\xED\\xA0\\x80", "UTF-8"},           // a surrogate
        {"big\xF4\x90\x80\x80", "big\\xF4\\x90\\x80\\x80", "UTF-8"},  // above U+10FFFF
        {"bell\x07", "bell\\x07", "control character"},
        {"odd\\name.dll", "odd\\\\name.dll", "backslash"},
        {"not\xEF\xBF\xBF", "not\xEF\xBF\xBF", "control character"},  // U+FFFF
    };
    for (const auto& test : cases) {
        const EntryName name = DescribeEntryName(test.name);
        EXPECT_EQ(name.shown, test.shown) << test.name;
        if (test.problem == nullptr) {
            EXPECT_EQ(name.problem, nullptr) << test.name << ": " << name.problem;
            EXPECT_EQ(name.text, test.name);
        } else {
            ASSERT_NE(name.problem, nullptr) << test.name;
            EXPECT_NE(std::string(name.problem).find(test.problem), std::string::npos)
                << test.name << ": " << name.problem;
        }
    }
    EXPECT_EQ(ShowName("a\nb\\c"), "a\\x0Ab\\\\c");
}
#endif

TEST(EntryNameTest, PercentSignsThatWouldFormAPlaceholderAreFound) {
    struct Case {
        const char* folder;
        const char* name;
        bool placeholder;
    };
    const std::vector<Case> cases = {
        {"%ProductRoot%", "%HOME%.txt", true},
        {"%ProductRoot%", "sub\\%HOME%\\a.txt", true},
        {"%ProductRoot%", "a%\\b%.txt", true},  // pairs across folders
        {"C:\\100%", "x%y.txt", true},          // pairs with the folder's own '%'
        {"%ProductRoot%", "100%.txt", false},
        {"%ProductRoot%", "a%%b", false},  // "%%" holds no key
        {"%ProductRoot%\\50%", "plain.txt", false},
        {"%Bin%", "a.dll", false},
    };
    for (const auto& test : cases) {
        EXPECT_EQ(NameMakesPlaceholder(test.folder, test.name), test.placeholder)
            << test.folder << " + " << test.name;
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

TEST_F(TreeEnumeratorTest, EverythingInPathOrderWithoutPatterns) {
    EXPECT_THAT(List(TreeEnumerator({}, {})),
                ElementsAre("app.exe", "bin/a.dll", "bin/a.pdb", "bin/x64/b.dll", "logs/old/a.dll",
                            "logs/today.log", "readme.txt"));
    EXPECT_TRUE(skipped_.empty());
}

TEST_F(TreeEnumeratorTest, IncludesAdmitAndExcludesWinAndPrune) {
    EXPECT_THAT(List(TreeEnumerator(Patterns({"*.dll", "*.exe"}), Patterns({"logs", "x64/"}))),
                ElementsAre("app.exe", "bin/a.dll", "bin/x64/b.dll"));
    EXPECT_THAT(List(TreeEnumerator(Patterns({"bin/**"}), Patterns({"*.pdb", "bin/x64/**"}))),
                ElementsAre("bin/a.dll"));
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
    struct Case {
        const char* what;
        fs::path ignored;
        fs::path root;
    };
    // The manifest is readme.txt; it is reached by another way each time.
    const std::vector<Case> cases = {
        {"root through a link", dir_ / "readme.txt", linkedRoot},
        {"manifest through a link", linkedRoot / "readme.txt", dir_.Path()},
        {"manifest by its own link", dir_ / "bin" / "link.txt", dir_.Path()},
    };
    fs::create_symlink(dir_ / "readme.txt", dir_ / "bin" / "link.txt");
    for (const auto& test : cases) {
        TreeEnumerator enumerator({}, Patterns({"logs"}));
        enumerator.Ignore(test.ignored);
        EXPECT_THAT(List(enumerator, test.root),
                    ElementsAre("app.exe", "bin/a.dll", "bin/a.pdb", "bin/x64/b.dll"))
            << test.what;
    }
    fs::remove(linkedRoot);
}

TEST_F(TreeEnumeratorTest, MissingRootOrFileRootFails) {
    TreeEnumerator enumerator({}, {});
    const auto ignore = [](const std::string&, const std::string&) {};
    EXPECT_THAT(
        ict_test::ThrownText<Exception>([&] { enumerator.Enumerate(dir_ / "none", ignore); }),
        HasSubstr("Can't enumerate " + (dir_ / "none").string() + ". Reason: "));
    EXPECT_THAT(
        ict_test::ThrownText<Exception>([&] { enumerator.Enumerate(dir_ / "readme.txt", ignore); }),
        HasSubstr("it is not a directory"));
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
