#include <gtest/gtest.h>

#include "common/exception.h"
#include "generate/glob_pattern.h"

namespace integrity_check_tool::generate {
namespace {

bool Match(const std::string& pattern, const std::string& path) {
    return GlobPattern(pattern).Matches(path);
}

TEST(GlobPatternTest, PatternWithoutSlashLooksAtTheNameOnly) {
    EXPECT_TRUE(Match("*.dll", "a.dll"));
    EXPECT_TRUE(Match("*.dll", "bin/x64/a.dll"));
    EXPECT_FALSE(Match("*.dll", "a.dll.bak"));
    EXPECT_FALSE(Match("*.dll", "a.dll/readme.txt"));
    EXPECT_TRUE(Match("readme.txt", "docs/readme.txt"));
    EXPECT_FALSE(Match("readme.txt", "docs/readme.txt2"));
}

TEST(GlobPatternTest, PatternWithSlashMatchesTheWholeRelativePath) {
    EXPECT_TRUE(Match("bin/*.dll", "bin/a.dll"));
    EXPECT_FALSE(Match("bin/*.dll", "lib/bin/a.dll"));
    // A single star never crosses a separator.
    EXPECT_FALSE(Match("bin/*.dll", "bin/x64/a.dll"));
    EXPECT_TRUE(Match("/bin/a.dll", "bin/a.dll"));
    EXPECT_TRUE(Match("bin\\x64\\*.dll", "bin/x64/a.dll"));
}

TEST(GlobPatternTest, DoubleStarCrossesSegmentsAndMayBeEmpty) {
    EXPECT_TRUE(Match("**/*.dll", "a.dll"));
    EXPECT_TRUE(Match("**/*.dll", "bin/x64/a.dll"));
    EXPECT_TRUE(Match("bin/**/a.dll", "bin/a.dll"));
    EXPECT_TRUE(Match("bin/**/a.dll", "bin/x/y/z/a.dll"));
    EXPECT_FALSE(Match("bin/**/a.dll", "bin/xa.dll"));
    EXPECT_TRUE(Match("logs/**", "logs/a/b.txt"));
    EXPECT_FALSE(Match("logs/**", "logs2/a.txt"));
    EXPECT_TRUE(Match("bin/a**z", "bin/a/b/z"));
    // Without a slash the pattern still sees the last segment only.
    EXPECT_FALSE(Match("a**z", "a/b/z"));
    // A trailing slash names everything below a folder.
    EXPECT_TRUE(Match("tmp/", "tmp/x/y"));
    EXPECT_FALSE(Match("tmp/", "tmp"));
}

TEST(GlobPatternTest, QuestionMarkAndSets) {
    EXPECT_TRUE(Match("file?.txt", "file1.txt"));
    EXPECT_FALSE(Match("file?.txt", "file.txt"));
    EXPECT_FALSE(Match("a?b", "a/b"));
    EXPECT_TRUE(Match("v[0-9].dll", "v7.dll"));
    EXPECT_FALSE(Match("v[0-9].dll", "vx.dll"));
    EXPECT_TRUE(Match("v[!0-9].dll", "vx.dll"));
    EXPECT_FALSE(Match("v[^0-9].dll", "v1.dll"));
    EXPECT_TRUE(Match("[]x].txt", "].txt"));
    EXPECT_TRUE(Match("[*].txt", "*.txt"));
    EXPECT_FALSE(Match("[*].txt", "a.txt"));
}

TEST(GlobPatternTest, MatchingIsCaseSensitive) {
    EXPECT_FALSE(Match("*.DLL", "a.dll"));
    EXPECT_TRUE(Match("*.DLL", "A.DLL"));
}

TEST(GlobPatternTest, ManyStarsStayFast) {
    // Backtracking matchers take exponential time here.
    const std::string path(2000, 'a');
    EXPECT_FALSE(Match("*a*a*a*a*a*a*a*a*a*a*a*a*b", path));
    EXPECT_FALSE(Match("**a**a**a**a**a**a**a**a**b", path));
}

TEST(GlobPatternTest, InvalidPatternsNameThemselves) {
    try {
        GlobPattern("bin/[a-z");
        FAIL() << "an unterminated set was accepted";
    } catch (const Exception& error) {
        EXPECT_EQ(error.GetMessage(), "Invalid pattern bin/[a-z: '[' without its closing ']'");
    }
    EXPECT_THROW(GlobPattern(""), Exception);
    EXPECT_THROW(GlobPattern("/"), Exception);
}

TEST(GlobPatternTest, MatchesAnyOfSeveral) {
    const std::vector<GlobPattern> patterns{GlobPattern("*.exe"), GlobPattern("bin/*.dll")};
    EXPECT_TRUE(MatchesAny(patterns, "tools/x.exe"));
    EXPECT_TRUE(MatchesAny(patterns, "bin/a.dll"));
    EXPECT_FALSE(MatchesAny(patterns, "lib/a.dll"));
    EXPECT_FALSE(MatchesAny({}, "a"));
}

}  // namespace
}  // namespace integrity_check_tool::generate
