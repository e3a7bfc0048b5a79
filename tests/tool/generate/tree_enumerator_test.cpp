#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <boost/filesystem/operations.hpp>

#include "common/exception.h"
#include "generate/progress_counter.h"
#include "generate/tree_enumerator.h"
#include "support/e2e.h"

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

    std::vector<std::string> List(const TreeEnumerator& enumerator) {
        std::vector<std::string> paths;
        for (const auto& file :
             enumerator.Enumerate(dir_.Path(), [this](const auto&path, const auto&reason) {
                 skipped_.emplace_back(path, reason);
             })) {
            EXPECT_EQ(file.fullPath, dir_.Path() / file.relativePath);
            paths.push_back(file.relativePath);
        }
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

TEST_F(TreeEnumeratorTest, IgnoredFileAndSpecialEntriesAreLeftOut) {
    ict_test::MakeFifo(dir_ / "bin" / "pipe.dll");
    fs::create_directory_symlink(dir_ / "logs", dir_ / "bin" / "linked");
    fs::create_symlink(dir_ / "readme.txt", dir_ / "bin" / "readme.dll");
    fs::create_symlink(dir_ / "gone", dir_ / "bin" / "dangling.dll");
    TreeEnumerator enumerator(Patterns({"bin/**"}), {});
    enumerator.Ignore(dir_ / "bin" / ".." / "bin" / "a.pdb");
    // The FIFO must never be opened: the run would wait for a writer forever.
    EXPECT_THAT(List(enumerator), ElementsAre("bin/a.dll", "bin/readme.dll", "bin/x64/b.dll"));
    EXPECT_THAT(skipped_, UnorderedElementsAre(
                              Pair("bin/pipe.dll", "not a regular file"),
                              Pair("bin/linked", "a symbolic link to a directory is not followed"),
                              Pair("bin/dangling.dll", "a symbolic link to nothing")));
}

TEST_F(TreeEnumeratorTest, NameWithBackslashCannotBeWritten) {
    ict_test::WriteText(dir_ / "odd\\name.dll", "x");
    EXPECT_THAT(List(TreeEnumerator(Patterns({"*.dll"}), Patterns({"bin", "logs"}))),
                ElementsAre());
    ASSERT_EQ(skipped_.size(), 1u);
    EXPECT_EQ(skipped_[0].first, "odd\\name.dll");
}

TEST_F(TreeEnumeratorTest, MissingRootOrFileRootFails) {
    TreeEnumerator enumerator({}, {});
    const auto ignore = [](const std::string&, const std::string&) {};
    try {
        enumerator.Enumerate(dir_ / "none", ignore);
        FAIL() << "a missing folder was enumerated";
    } catch (const Exception& error) {
        EXPECT_THAT(error.GetMessage(),
                    HasSubstr("Can't enumerate " + (dir_ / "none").string() + ". Reason: "));
    }
    try {
        enumerator.Enumerate(dir_ / "readme.txt", ignore);
        FAIL() << "a file was enumerated as a folder";
    } catch (const Exception& error) {
        EXPECT_THAT(error.GetMessage(), HasSubstr("it is not a directory"));
    }
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
