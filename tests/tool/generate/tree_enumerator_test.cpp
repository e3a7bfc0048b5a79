#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <boost/filesystem/operations.hpp>

#include "common/exception.h"
#include "generate/progress_counter.h"
#include "generate/tree_enumerator.h"
#include "support/e2e.h"
#include "support/thrown.h"
#include "tool/generate/file_rights.h"

namespace integrity_check_tool::generate {
namespace {

namespace fs = boost::filesystem;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Pair;
using testing::UnorderedElementsAre;

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
        for (const auto& failure : listing.failures) {
            failures_.emplace_back(failure.relativePath, failure.reason);
        }
        return paths;
    }

    ict_test::TempDir dir_;
    std::vector<std::pair<std::string, std::string>> skipped_;
    std::vector<std::pair<std::string, std::string>> failures_;
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

TEST_F(TreeEnumeratorTest, IgnoredFileAndSpecialEntriesAreLeftOut) {
    TreeEnumerator enumerator(Patterns({"bin/**"}), {});
    enumerator.Ignore(dir_ / "bin" / ".." / "bin" / "a.pdb");
    EXPECT_THAT(List(enumerator), ElementsAre("bin/a.dll", "bin/x64/b.dll"));
#ifdef _WIN32
    GTEST_SKIP() << "a Windows folder holds no FIFOs, and symbolic links need rights Wine lacks";
#endif
    ict_test::MakeFifo(dir_ / "bin" / "pipe.dll");
    fs::create_directory_symlink(dir_ / "logs", dir_ / "bin" / "linked");
    fs::create_symlink(dir_ / "readme.txt", dir_ / "bin" / "readme.dll");
    fs::create_symlink(dir_ / "gone", dir_ / "bin" / "dangling.dll");
    // The FIFO must never be opened: the run would wait for a writer forever.
    EXPECT_THAT(List(enumerator), ElementsAre("bin/a.dll", "bin/readme.dll", "bin/x64/b.dll"));
    EXPECT_THAT(skipped_, UnorderedElementsAre(
                              Pair("bin/pipe.dll", "not a regular file"),
                              Pair("bin/linked", "a symbolic link to a directory is not followed"),
                              Pair("bin/dangling.dll", "a symbolic link to nothing")));
}

TEST_F(TreeEnumeratorTest, NamesNoManifestCanHoldAreSkippedAndNamedEscaped) {
#ifdef _WIN32
    GTEST_SKIP() << "Windows file names hold no backslash, control character or quote, and "
                    "are UTF-16, never bytes that are not UTF-8";
#endif
    ict_test::WriteText(dir_ / "odd\\name.dll", "x");
    ict_test::WriteText(dir_ / "end\xD6.dll", "x");
    ict_test::WriteText(dir_ / "bell\x07.dll", "x");
    ict_test::WriteText(dir_ / "bad\xFF" / "inner.dll", "x");
    ict_test::WriteText(dir_ / "new\nline &<>\"'.dll", "x");
    EXPECT_THAT(List(TreeEnumerator(Patterns({"*.dll"}), Patterns({"bin", "logs"}))),
                ElementsAre("new\nline &<>\"'.dll"));
    // A folder with such a name is reported once, not entered.
    EXPECT_THAT(skipped_,
                UnorderedElementsAre(Pair("odd\\\\name.dll", HasSubstr("backslash")),
                                     Pair("end\\xD6.dll", HasSubstr("not valid UTF-8")),
                                     Pair("bell\\x07.dll", HasSubstr("control character")),
                                     Pair("bad\\xFF", HasSubstr("not valid UTF-8"))));
}

TEST_F(TreeEnumeratorTest, LinkLoopIsCalledALoop) {
    if (!ict_test::SymbolicLinksWork(dir_.Path())) {
        GTEST_SKIP() << "this system does not let the test make symbolic links";
    }
    fs::create_symlink(dir_ / "loop-b", dir_ / "loop-a");
    fs::create_symlink(dir_ / "loop-a", dir_ / "loop-b");
    fs::create_symlink("self", dir_ / "self");
    EXPECT_THAT(List(TreeEnumerator(Patterns({"loop-*", "self"}), {})), ElementsAre());
    EXPECT_THAT(skipped_, UnorderedElementsAre(Pair("loop-a", "a symbolic link loop"),
                                               Pair("loop-b", "a symbolic link loop"),
                                               Pair("self", "a symbolic link loop")));
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

TEST_F(TreeEnumeratorTest, UnreadableFoldersAreNamedAndTheRestIsListed) {
    ict_test::WriteText(dir_ / "bin" / "locked" / "hidden.dll", "x");
    ict_test::WriteText(dir_ / "logs" / "shut" / "deep.log", "x");
    ict_test::SetPermissions(dir_ / "bin" / "locked", fs::no_perms);
    ict_test::SetPermissions(dir_ / "logs" / "shut", fs::no_perms);
    std::vector<std::string> listed;
    {
        ict_test::ObeyFilePermissions obey;
        if (!obey.Binding()) {
            ict_test::SetPermissions(dir_ / "bin" / "locked", fs::owner_all);
            ict_test::SetPermissions(dir_ / "logs" / "shut", fs::owner_all);
            GTEST_SKIP() << "file permissions do not bind this process";
        }
        listed = List(TreeEnumerator({}, {}));
    }
    ict_test::SetPermissions(dir_ / "bin" / "locked", fs::owner_all);
    ict_test::SetPermissions(dir_ / "logs" / "shut", fs::owner_all);
    EXPECT_THAT(listed, ElementsAre("app.exe", "bin/a.dll", "bin/a.pdb", "bin/x64/b.dll",
                                    "logs/old/a.dll", "logs/today.log", "readme.txt"));
    EXPECT_THAT(failures_, ElementsAre(Pair("bin/locked", HasSubstr("ermission denied")),
                                       Pair("logs/shut", HasSubstr("ermission denied"))));
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
