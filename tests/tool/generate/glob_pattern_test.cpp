#include <gtest/gtest.h>

#include "common/exception.h"
#include "generate/glob_pattern.h"
#include "support/thrown.h"

namespace integrity_check_tool::generate {
namespace {

TEST(GlobPatternTest, MatchesAsTheTableSays) {
    const struct {
        const char* pattern;
        const char* path;
        bool matches;
    } cases[] = {
        // Without a slash only the name is looked at.
        {"*.dll", "a.dll", true},
        {"*.dll", "bin/x64/a.dll", true},
        {"*.dll", "a.dll.bak", false},
        {"*.dll", "a.dll/readme.txt", false},
        {"readme.txt", "docs/readme.txt", true},
        {"readme.txt", "docs/readme.txt2", false},
        // With one the whole relative path; a single star never crosses a separator.
        {"bin/*.dll", "bin/a.dll", true},
        {"bin/*.dll", "lib/bin/a.dll", false},
        {"bin/*.dll", "bin/x64/a.dll", false},
        {"/bin/a.dll", "bin/a.dll", true},
        {"bin\\x64\\*.dll", "bin/x64/a.dll", true},
        // A double star crosses segments and may be empty.
        {"**/*.dll", "a.dll", true},
        {"**/*.dll", "bin/x64/a.dll", true},
        {"bin/**/a.dll", "bin/a.dll", true},
        {"bin/**/a.dll", "bin/x/y/z/a.dll", true},
        {"bin/**/a.dll", "bin/xa.dll", false},
        {"logs/**", "logs/a/b.txt", true},
        {"logs/**", "logs2/a.txt", false},
        {"bin/a**z", "bin/a/b/z", true},
        {"a**z", "a/b/z", false},
        // A trailing slash names everything below a folder.
        {"tmp/", "tmp/x/y", true},
        {"tmp/", "tmp", false},
        {"file?.txt", "file1.txt", true},
        {"file?.txt", "file.txt", false},
        {"a?b", "a/b", false},
        {"v[0-9].dll", "v7.dll", true},
        {"v[0-9].dll", "vx.dll", false},
        {"v[!0-9].dll", "vx.dll", true},
        {"v[^0-9].dll", "v1.dll", false},
        {"[]x].txt", "].txt", true},
        {"[*].txt", "*.txt", true},
        {"[*].txt", "a.txt", false},
        {"*.DLL", "a.dll", false},
        {"*.DLL", "A.DLL", true},
        // Backtracking matchers take exponential time on these.
        {"*a*a*a*a*a*a*a*a*a*a*a*a*b", "aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa", false},
        {"**a**a**a**a**a**a**a**a**b", "aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa",
         false},
    };
    for (const auto& test : cases) {
        EXPECT_EQ(GlobPattern(test.pattern).Matches(test.path), test.matches)
            << test.pattern << " on " << test.path;
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

}  // namespace
}  // namespace integrity_check_tool::generate
